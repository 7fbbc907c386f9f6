#pragma once

/// Marks what libvidorra.so exports; everything else in it is hidden.
#define VIDORRA_API __attribute__((visibility("default")))
