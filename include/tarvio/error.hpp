// The codes of error.h as std::error_code.
#ifndef TARVIO_ERROR_HPP
#define TARVIO_ERROR_HPP

#include <string>
#include <system_error>
#include <type_traits>

#include "tarvio/error.h"

namespace tarvio {

// Why a package could not be installed or removed. Other errors compare with std::errc, such as
// std::errc::no_such_file_or_directory.
enum class Errc {
  kPackageMalformed = TQ_ERR_PACKAGE_MALFORMED,
  kPackageDependency = TQ_ERR_PACKAGE_DEPENDENCY,
  kPackageNoSpace = TQ_ERR_PACKAGE_NO_SPACE,
  kPackageUnsupported = TQ_ERR_PACKAGE_UNSUPPORTED,
  kPackageOther = TQ_ERR_PACKAGE_OTHER
};

namespace detail {

class ErrorCategory final : public std::error_category {
 public:
  const char *name() const noexcept override { return "tarvio"; }
  std::string message(int code) const override {
    char text[256] = "";
    tq_strerror_r(code, text, sizeof text);
    // Some codes have no text (oddity 7).
    return text[0] != '\0' ? text : "error " + std::to_string(code);
  }
  std::error_condition default_error_condition(int code) const noexcept override {
    if (code > 0 && code < TQ_ERR_BOOT) return {code, std::generic_category()};
    return {code, *this};
  }
};

}  // namespace detail

// The category of all errors here: the codes of error.h, with the system's messages.
inline const std::error_category &error_category() noexcept {
  static const detail::ErrorCategory category;
  return category;
}

// What a C call returned; no error for 0.
inline std::error_code error_of(int code) noexcept {
  if (code == 0) return {};
  return {code, error_category()};
}

namespace detail {

// A text with a NUL in it would be another one for the C calls.
inline bool is_c_string(const std::string &text) noexcept {
  return text.find('\0') == std::string::npos;
}

}  // namespace detail

// Makes an Errc a std::error_code wherever one is expected.
inline std::error_code make_error_code(Errc code) noexcept {
  return error_of(static_cast<int>(code));
}

}  // namespace tarvio

namespace std {

template <>
struct is_error_code_enum<tarvio::Errc> : true_type {};

}  // namespace std

#endif
