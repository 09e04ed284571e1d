// A result, or the error that kept it from being made: for the queries whose failure is an
// ordinary answer (no such file, no free-space figure), so that a caller tests the answer instead
// of catching. Value() throws the error for a caller that leaves it to its error trap.
#pragma once

#include "platform/SysError.h"

#include <utility>
#include <variant>

namespace orvKestrel {

template <typename T>
class [[nodiscard]] ErrorOr {
 public:
  ErrorOr(T value) : v_(std::in_place_index<0>, std::move(value)) {}          // NOLINT: implicit
  ErrorOr(KestrelError error) : v_(std::in_place_index<1>, std::move(error)) {}  // NOLINT: implicit

  bool HasValue() const { return v_.index() == 0; }
  explicit operator bool() const { return HasValue(); }
  const T& Value() const {
    if (!HasValue()) throw std::get<1>(v_);
    return std::get<0>(v_);
  }
  T ValueOr(T fallback) const { return HasValue() ? std::get<0>(v_) : std::move(fallback); }
  const KestrelError& Error() const { return std::get<1>(v_); }

 private:
  std::variant<T, KestrelError> v_;
};

}  // namespace orvKestrel
