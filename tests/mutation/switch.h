// SPDX-License-Identifier: MIT
#pragma once

// Read before everything else by the build of scripts/mutate, in which the code under test holds
// all its mutants, each behind a switch. RA_MUTANT in the environment names the one that is on.
// RA_REACHED names a file that gets a byte for every switch that the process came to: 1, or 2 if
// the types there do not allow the mutant.

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

namespace mutation {

inline constexpr int kMost = 1 << 18;

inline int chosen() {
  const char* const number = std::getenv("RA_MUTANT");
  return number == nullptr ? 0 : std::atoi(number);
}

// Shared with the file at once, so that it is whole even if the process crashes, and resident, as
// audio callbacks pass switches, too.
inline unsigned char* reachedMap() {
  static unsigned char unread[kMost];
  const char* const path = std::getenv("RA_REACHED");
  if (path == nullptr) return unread;
  const int file = ::open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (file < 0 || ::ftruncate(file, kMost) != 0) std::abort();
  void* const map =
      ::mmap(nullptr, kMost, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, file, 0);
  ::close(file);
  if (map == MAP_FAILED) std::abort();
  return static_cast<unsigned char*>(map);
}

inline const int active = chosen();
inline unsigned char* const reached = reachedMap();

// Mutants are counted from 1. 0 is none, and never on.
inline bool on(int mutant) {
  reached[mutant] = 1;
  return mutant == active && mutant != 0;
}

inline void impossible(int mutant) {
  reached[mutant] = 2;
}

template <typename T>
bool negated(int mutant, const T& condition) {
  return static_cast<bool>(condition) != on(mutant);
}

template <typename T>
T pick(int mutant, T value, T instead) {
  return on(mutant) ? instead : value;
}
template <typename T>
T pick(int mutant, T value, T instead, T orInstead) {
  return on(mutant) ? instead : on(mutant + 1) ? orInstead : value;
}

// `!a` becomes `!Not{1}->*a`: what binds tighter than `!` stays with a.
struct Not {
  int mutant;
};
struct BoundNot {
  int mutant;
};
inline BoundNot operator!(Not which) {
  return {which.mutant};
}
template <typename T>
bool operator->*(BoundNot which, const T& value) {
  return !static_cast<bool>(value) != on(which.mutant);
}

// `a < b` becomes `a < Less{1, 2} < b`, which binds in the same way: the first half takes a, the
// second b. With the first mutant on, `a <= b` is computed, with the second `a >= b`.
#define RA_MUTABLE_OPERATOR(Name, op, instead, orInstead)                       \
  struct Name {                                                                 \
    int first = 0;                                                              \
    int second = 0;                                                             \
  };                                                                            \
  template <typename L>                                                         \
  struct Bound##Name {                                                          \
    L&& left;                                                                   \
    Name which;                                                                 \
    template <typename R>                                                       \
    auto operator op(const R& right) const -> decltype(this->left op right) {   \
      using Result = decltype(left op right);                                   \
      if constexpr (requires { static_cast<Result>(left instead right); }) {    \
        if (on(which.first)) return static_cast<Result>(left instead right);    \
        if (on(which.second)) return static_cast<Result>(left orInstead right); \
      } else {                                                                  \
        impossible(which.first);                                                \
        impossible(which.second);                                               \
      }                                                                         \
      return left op right;                                                     \
    }                                                                           \
  };                                                                            \
  template <typename L>                                                         \
  Bound##Name<L> operator op(L&& left, Name which) {                            \
    return {static_cast<L&&>(left), which};                                     \
  }

RA_MUTABLE_OPERATOR(Less, <, <=, >=)
RA_MUTABLE_OPERATOR(LessOrEqual, <=, <, >)
RA_MUTABLE_OPERATOR(Greater, >, >=, <=)
RA_MUTABLE_OPERATOR(GreaterOrEqual, >=, >, <)
RA_MUTABLE_OPERATOR(Equal, ==, !=, !=)
RA_MUTABLE_OPERATOR(Unequal, !=, ==, ==)
RA_MUTABLE_OPERATOR(Plus, +, -, -)
RA_MUTABLE_OPERATOR(Minus, -, +, +)
RA_MUTABLE_OPERATOR(Times, *, /, /)
RA_MUTABLE_OPERATOR(Over, /, *, *)
RA_MUTABLE_OPERATOR(Modulo, %, *, *)
RA_MUTABLE_OPERATOR(BitAnd, &, |, |)
RA_MUTABLE_OPERATOR(BitOr, |, &, &)

// `a += b` binds from the right: `a += PlusAssign{1} += b`.
#define RA_MUTABLE_ASSIGNMENT(Name, op, instead)             \
  struct Name {                                              \
    int mutant;                                              \
  };                                                         \
  template <typename R>                                      \
  struct Bound##Name {                                       \
    const R& right;                                          \
    int mutant;                                              \
  };                                                         \
  template <typename R>                                      \
  Bound##Name<R> operator op(Name which, const R& right) {   \
    return {right, which.mutant};                            \
  }                                                          \
  template <typename L, typename R>                          \
  L& operator op(L& left, const Bound##Name<R>& bound) {     \
    if constexpr (requires { left instead bound.right; }) {  \
      if (on(bound.mutant)) return left instead bound.right; \
    } else {                                                 \
      impossible(bound.mutant);                              \
    }                                                        \
    return left op bound.right;                              \
  }

RA_MUTABLE_ASSIGNMENT(PlusAssign, +=, -=)
RA_MUTABLE_ASSIGNMENT(MinusAssign, -=, +=)
RA_MUTABLE_ASSIGNMENT(TimesAssign, *=, /=)

#undef RA_MUTABLE_OPERATOR
#undef RA_MUTABLE_ASSIGNMENT

}  // namespace mutation
