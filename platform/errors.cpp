#include "platform/errors.hpp"

#include "platform/exception_message.hpp"

#include <boost/asio/error.hpp>
#include <boost/system/system_error.hpp>

namespace ombrine {

namespace {
std::string describe(const std::string& domain, int code, const std::string& detail) {
  std::string text = "The operation couldn't be completed. (" + domain + " error " + std::to_string(code) + ".)";
  if (!detail.empty()) text += " " + detail;
  return text;
}
}  // namespace

DomainError::DomainError(std::string domain, int code, std::string detail)
    : std::runtime_error(describe(domain, code, detail)),
      domain_(std::move(domain)),
      code_(code),
      detail_(std::move(detail)) {}

std::string exceptionMessage(const std::exception_ptr& error) noexcept {
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& failure) {
    return failure.what();
  } catch (...) {
    return "unknown error";
  }
}

bool isCancellation(const std::exception_ptr& error) noexcept {
  if (!error) return false;
  try {
    std::rethrow_exception(error);
  } catch (const CancellationError&) {
    return true;
  } catch (const boost::system::system_error& e) {
    return e.code() == boost::asio::error::operation_aborted;
  } catch (...) {
    return false;
  }
}

void rethrowIfCancellation(const std::exception_ptr& error) {
  if (isCancellation(error)) throw CancellationError();
}

}  // namespace ombrine
