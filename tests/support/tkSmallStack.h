#ifndef TESTS_SUPPORT_TKSMALLSTACK_H
#define TESTS_SUPPORT_TKSMALLSTACK_H

#include <gtest/gtest.h>

#include <functional>
#include <thread>

#if defined(__unix__) || defined(__APPLE__)
#include <pthread.h>
#endif

/// Runs `action` on a thread with a stack of 256 KiB: whatever recurses a few thousand times ends the program. Where
/// threads have no such choice, on a thread with the usual stack; a million calls are too many for that one as well.
inline void tkOnSmallStack(const std::function<void()>& action)
{
#if defined(__unix__) || defined(__APPLE__)
    pthread_attr_t attributes;
    ASSERT_EQ(0, pthread_attr_init(&attributes));
    ASSERT_EQ(0, pthread_attr_setstacksize(&attributes, 256 * 1024));
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
    std::thread(action).join();
#endif
}

#endif
