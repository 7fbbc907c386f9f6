#pragma once

#define Z5_HW_ACCEL_API __attribute__((visibility("default")))
