#pragma once

/// Marks what libvidorra.so exports; everything else is hidden.
#define VIDORRA_API __attribute__((visibility("default")))
