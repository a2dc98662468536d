#include <gtest/gtest.h>

#include "RkError.h"

using namespace RkLib;

TEST(RkError, placeholder) { EXPECT_EQ(RkFatalError(7).severity(), 40u); }
