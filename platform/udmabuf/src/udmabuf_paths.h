#pragma once

#include <string>

/// Where the driver puts its files. Both functions are alone in their source file, so that a test program
/// that links the static library can replace them and run UdmaBuf on ordinary files.
namespace udmabuf {

/// The folder of the device files.
std::string deviceFolder();

/// The folder that holds a folder of controls for each device.
std::string controlFolder();

}  // namespace udmabuf
