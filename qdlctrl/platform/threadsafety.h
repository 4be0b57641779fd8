// SPDX-License-Identifier: MIT
// Clang's thread-safety attributes; other compilers see nothing. The clang build makes violations an error.
#pragma once

#if defined(__clang__)
#define QDL_TSA(attribute) __attribute__((attribute))
#else
#define QDL_TSA(attribute)
#endif

#define CAPABILITY(name) QDL_TSA(capability(name))
#define SCOPED_CAPABILITY QDL_TSA(scoped_lockable)
#define GUARDED_BY(lock) QDL_TSA(guarded_by(lock))
#define ACQUIRED_BEFORE(...) QDL_TSA(acquired_before(__VA_ARGS__))
#define REQUIRES(...) QDL_TSA(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) QDL_TSA(acquire_capability(__VA_ARGS__))
#define RELEASE(...) QDL_TSA(release_capability(__VA_ARGS__))
// Every use says in a comment why it is safe.
#define NO_THREAD_SAFETY_ANALYSIS QDL_TSA(no_thread_safety_analysis)
