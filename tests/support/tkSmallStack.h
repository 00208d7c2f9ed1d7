#ifndef TESTS_SUPPORT_TKSMALLSTACK_H
#define TESTS_SUPPORT_TKSMALLSTACK_H

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <thread>

#if defined(__unix__) || defined(__APPLE__)
#include <pthread.h>
#endif

/// Runs `action` on a thread with a stack of so many KiB: whatever recurses a few thousand times ends the program. The
/// sanitizers' larger frames get four times as much. Where threads have no such choice, on a thread with the usual
/// stack; a million calls are too many for that one as well.
inline void tkOnSmallStack(const std::function<void()>& action, std::size_t kibibytes = 256)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    kibibytes *= 4;
#endif
#if defined(__unix__) || defined(__APPLE__)
    pthread_attr_t attributes;
    ASSERT_EQ(0, pthread_attr_init(&attributes));
    ASSERT_EQ(0, pthread_attr_setstacksize(&attributes, kibibytes * 1024));
    pthread_t thread;
    const auto call = [](void* argument) -> void*
    {
        (*static_cast<const std::function<void()>*>(argument))();
        return nullptr;
    };
    ASSERT_EQ(0, pthread_create(&thread, &attributes, call, const_cast<std::function<void()>*>(&action)));
    ASSERT_EQ(0, pthread_join(thread, nullptr));
    pthread_attr_destroy(&attributes);
#else
    static_cast<void>(kibibytes);
    std::thread(action).join();
#endif
}

#endif
