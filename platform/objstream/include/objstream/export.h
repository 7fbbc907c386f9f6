#pragma once

#define OBJSTREAM_API __attribute__((visibility("default")))
