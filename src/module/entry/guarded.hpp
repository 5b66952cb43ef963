// The boundary to C: functions that the interpreter and native clients call, with C++ exceptions
// turned into Python errors.
#pragma once

#include <exception>
#include <type_traits>

namespace boundary {

// MemoryError for lack of memory and for lengths beyond all memory, RuntimeError with the
// exception's text for all others. Replaces an error that is pending.
void setErrorOf(const std::exception& exception);

// What a slot of the interpreter returns beside an error.
template <class Result>
constexpr Result failure() {
  if constexpr (std::is_pointer_v<Result>) {
    return nullptr;
  } else if constexpr (std::is_same_v<Result, bool>) {
    return false;
  } else if constexpr (!std::is_void_v<Result>) {
    return -1;
  }
}

template <auto handler>
struct Guarded;

// Not noexcept, and without a catch-all: at exit the interpreter ends threads that still run by
// unwinding their stacks, and that has to pass.
template <class Result, class... Arguments, Result (*handler)(Arguments...)>
struct Guarded<handler> {
  static Result call(Arguments... arguments) {
    try {
      return handler(arguments...);
    } catch (const std::exception& exception) {
      setErrorOf(exception);
      return failure<Result>();
    }
  }
};

}  // namespace boundary

// The handler as a function for the tables, with the same signature. Functions that cannot fail are
// noexcept and go into the tables as they are.
template <auto handler>
inline constexpr auto guarded = &boundary::Guarded<handler>::call;
