// Replaces a libc function for the calls of libtarvio.so alone.
//
//   int calls = 0;
//   Hook hook("fork", [&]() -> pid_t { ++calls; errno = EAGAIN; return -1; });
//
// The replacement is a lambda or, for a function with "..." arguments, a function pointer. It is
// called by the library only: the test itself, and libc inside, still reach the real function, so
// the replacement may call it. The end of the scope puts everything back. A name that the library
// does not import fails the test: a hook that nobody calls proves nothing.
#ifndef TARVIO_TESTS_SUPPORT_HOOKS_GOT_HOOK_H
#define TARVIO_TESTS_SUPPORT_HOOKS_GOT_HOOK_H

#include <string>
#include <utility>
#include <vector>

namespace tarvio_test {

// Whether the library imports `name`, or `name` with the suffix 64 of large files.
bool library_imports(const std::string& name);

// Points the library's imports of `name` (and of its large-file variant) to `replacement`.
class ImportPatch {
 public:
  ImportPatch(const std::string& name, void* replacement);
  ~ImportPatch();
  ImportPatch(const ImportPatch&) = delete;
  ImportPatch& operator=(const ImportPatch&) = delete;

  void* original() const { return slots_.empty() ? nullptr : slots_.front().before; }

 private:
  struct Slot {
    void** at;
    void* before;
  };
  std::vector<Slot> slots_;
};

namespace detail {

// A lambda is reached through a plain function of its own type.
template <typename Callable, typename Result, typename... Arguments>
struct LambdaTarget {
  using Pointer = Result (*)(Arguments...);
  static inline Callable* target = nullptr;
  static Result call(Arguments... arguments) { return (*target)(arguments...); }
  static Pointer pointer(Callable& callable) {
    target = &callable;
    return &call;
  }
};

template <typename Callable, typename Method = decltype(&Callable::operator())>
struct TargetOf;
template <typename Callable, typename Result, typename... Arguments>
struct TargetOf<Callable, Result (Callable::*)(Arguments...)>
    : LambdaTarget<Callable, Result, Arguments...> {};
template <typename Callable, typename Result, typename... Arguments>
struct TargetOf<Callable, Result (Callable::*)(Arguments...) const>
    : LambdaTarget<Callable, Result, Arguments...> {};

template <typename Callable>
struct Target : TargetOf<Callable> {};
// A plain function goes into the library as it is.
template <typename Function>
struct Target<Function*> {
  using Pointer = Function*;
  static Pointer pointer(Function* function) { return function; }
};

}  // namespace detail

template <typename Callable>
class Hook {
 public:
  using Pointer = typename detail::Target<Callable>::Pointer;

  Hook(const std::string& name, Callable replacement)
      : replacement_(std::move(replacement)),
        patch_(name, reinterpret_cast<void*>(detail::Target<Callable>::pointer(replacement_))) {}

  Pointer original() const { return reinterpret_cast<Pointer>(patch_.original()); }

 private:
  Callable replacement_;
  ImportPatch patch_;
};

}  // namespace tarvio_test

#endif
