// Points ICU at the shipped time-zone data before any test of this program touches ICU, as
// the `ombrine` command does at start.

#include <gtest/gtest.h>

#include "platform/icu_setup.hpp"

namespace {

class IcuEnvironment : public testing::Environment {
 public:
  void SetUp() override { ombrine::useShippedTimeZoneData(); }
};

[[maybe_unused]] testing::Environment* const kIcuEnvironment = testing::AddGlobalTestEnvironment(new IcuEnvironment);

}  // namespace
