// SPDX-License-Identifier: MIT
#pragma once

// Says of a member which lock or thread it belongs to, and of a function which of them its caller
// holds. Clang checks it (-Wthread-safety); to other compilers these words are nothing.

#ifdef __clang__
#define RA_THREAD_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define RA_THREAD_ATTRIBUTE(attribute)
#endif

// A member that is read and written under a mutex, or on a thread, only.
#define RA_GUARDED_BY(capability) RA_THREAD_ATTRIBUTE(guarded_by(capability))
// The caller holds the mutex, or is on the thread. Stands behind a lambda's parentheses, too.
#define RA_REQUIRES(...) RA_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))

// For the types that are held.
#define RA_CAPABILITY(name) RA_THREAD_ATTRIBUTE(capability(name))
#define RA_SCOPED_CAPABILITY RA_THREAD_ATTRIBUTE(scoped_lockable)
#define RA_ACQUIRE(...) RA_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RA_RELEASE(...) RA_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define RA_ASSERT_HELD(...) RA_THREAD_ATTRIBUTE(assert_capability(__VA_ARGS__))
