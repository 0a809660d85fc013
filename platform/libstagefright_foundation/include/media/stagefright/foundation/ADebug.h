// SPDX-License-Identifier: Apache-2.0
// Fatal checks: what fails them is a defect of this program, so they log and abort in every build.
//
// LOG_TAG has to be defined before this file is included.
#pragma once

#include <string>

#include <log/log.h>
#include <media/stagefright/foundation/ABase.h>
#include <media/stagefright/foundation/AString.h>

#define LITERAL_TO_STRING_INTERNAL(x) #x
#define LITERAL_TO_STRING(x) LITERAL_TO_STRING_INTERNAL(x)

/** Aborts, logging the place in the code and then the given text. */
#define TRESPASS(...) \
    LOG_ALWAYS_FATAL(__FILE__ ":" LITERAL_TO_STRING(__LINE__) " Should not be here. " __VA_ARGS__)

// The checks of <android-base/logging.h> have the same names and take precedence where both are
// included.
#ifndef CHECK_OP

/** Aborts unless the condition is true. */
#define CHECK(condition)                    \
    LOG_ALWAYS_FATAL_IF(!(condition), "%s", \
                        __FILE__ ":" LITERAL_TO_STRING(__LINE__) " CHECK(" #condition ") failed.")

// Compares and, on failure, names both values. The operands are evaluated once; they have to be
// what AString::append takes: integers, floating point, pointers, strings.
#define CHECK_OP(x, y, suffix, op)                                                              \
    do {                                                                                        \
        const auto& checkedX = (x);                                                             \
        const auto& checkedY = (y);                                                             \
        if (!(checkedX op checkedY)) {                                                          \
            ::android::AString values;                                                          \
            values.append(checkedX);                                                            \
            values.append(" vs. ");                                                             \
            values.append(checkedY);                                                            \
            LOG_ALWAYS_FATAL("%s failed: %s",                                                   \
                             __FILE__ ":" LITERAL_TO_STRING(__LINE__) " CHECK_" #suffix "( " #x \
                                                                      "," #y ")",               \
                             values.c_str());                                                   \
        }                                                                                       \
    } while (false)

#define CHECK_EQ(x, y) CHECK_OP(x, y, EQ, ==)
#define CHECK_NE(x, y) CHECK_OP(x, y, NE, !=)
#define CHECK_LE(x, y) CHECK_OP(x, y, LE, <=)
#define CHECK_LT(x, y) CHECK_OP(x, y, LT, <)
#define CHECK_GE(x, y) CHECK_OP(x, y, GE, >=)
#define CHECK_GT(x, y) CHECK_OP(x, y, GT, >)

#endif  // CHECK_OP
