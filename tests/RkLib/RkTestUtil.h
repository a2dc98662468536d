// Small helpers shared by the suites.
#pragma once

#include <gtest/gtest.h>

#include <string>

// Names a parameterised case by its row's `name` field.
struct RkCaseName {
  template <typename T>
  std::string operator()(const testing::TestParamInfo<T>& row) const {
    return row.param.name;
  }
};
