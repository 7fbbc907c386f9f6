#pragma once

#include <gtest/gtest.h>

/// Expects that a statement throws exactly this type with exactly this text.
#define EXPECT_THROW_TEXT(type, text, ...)                                            \
    do {                                                                              \
        try {                                                                         \
            __VA_ARGS__;                                                              \
            ADD_FAILURE() << "nothing was thrown, expected " #type ": " << (text);    \
        } catch (const std::exception& thrown_) {                                     \
            EXPECT_EQ(typeid(thrown_), typeid(type)) << "thrown: " << thrown_.what(); \
            EXPECT_STREQ(thrown_.what(), std::string(text).c_str());                  \
        }                                                                             \
    } while (false)
