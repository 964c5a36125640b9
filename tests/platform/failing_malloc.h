// An allocator that can be made to fail, for the services, which ask malloc. password_codec_test.cpp has it.
#ifndef VELTOR_TESTS_FAILING_MALLOC_H
#define VELTOR_TESTS_FAILING_MALLOC_H

// A sanitizer that brings its own allocator leaves no room for ours, so there the tests that need it say that they are
// left out; the plain build runs them.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VELTOR_TEST_OWN_ALLOCATOR 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define VELTOR_TEST_OWN_ALLOCATOR 0
#endif
#endif
#ifndef VELTOR_TEST_OWN_ALLOCATOR
#define VELTOR_TEST_OWN_ALLOCATOR 1
#endif

namespace veltor::test {

/// While set, malloc fails.
inline bool allocationsFail = false;

} // namespace veltor::test

#endif
