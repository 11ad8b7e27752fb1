// A fixture whose cases each work in a place of their own.
#pragma once
#include <gtest/gtest.h>

#include "scratch.hpp"

namespace scratch {

struct fixture : testing::Test {
  workplace place;
};

}  // namespace scratch
