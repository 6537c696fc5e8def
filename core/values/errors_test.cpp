#include "core/values/errors.hpp"

#include <gtest/gtest.h>

#include <boost/asio/error.hpp>
#include <boost/system/system_error.hpp>

namespace ombrine {
namespace {

TEST(ErrorsTest, CancellationIsRecognisedAndNeverConfusedWithOtherFailures) {
  struct Row {
    std::exception_ptr error;
    bool cancellation;
  };
  const Row rows[] = {
      {std::make_exception_ptr(CancellationError()), true},
      // Asio reports a cancelled wait as operation_aborted.
      {std::make_exception_ptr(boost::system::system_error(boost::asio::error::operation_aborted)), true},
      {std::make_exception_ptr(boost::system::system_error(boost::asio::error::timed_out)), false},
      {std::make_exception_ptr(NetworkError(NetworkError::exceededApiLimit)), false},
      {std::make_exception_ptr(DomainError(kRequestErrorDomain, kRequestErrorCode)), false},
      {nullptr, false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(isCancellation(row.error), row.cancellation);
    if (row.cancellation) {
      EXPECT_THROW(rethrowIfCancellation(row.error), CancellationError);
    } else {
      EXPECT_NO_THROW(rethrowIfCancellation(row.error));
    }
  }
}

}  // namespace
}  // namespace ombrine
