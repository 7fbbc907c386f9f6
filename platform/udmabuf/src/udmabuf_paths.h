#pragma once

#include <string>

/// Where the driver puts its files. Both functions stand alone in their source file, so that a test program
/// which links the static library can put its own in their place and run UdmaBuf on ordinary files.
namespace udmabuf {

/// The folder of the device files.
std::string deviceFolder();

/// The folder that holds a folder of controls for each device.
std::string controlFolder();

}  // namespace udmabuf
