#pragma once

#define VDR_UTILS_API __attribute__((visibility("default")))
