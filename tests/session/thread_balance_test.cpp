#include "session/calls/thread_balance.h"

#include <gtest/gtest.h>

#include <random>

namespace session {
namespace {

using need = thread_balance::need;

TEST(thread_balance, keeps_a_thread_waiting_whatever_the_order)
{
    std::mt19937 random(1);
    thread_balance balance;
    int waiting = 0, at_work = 0, resting = 0, woken = 0;
    const auto start = [&] {
        balance.started();
        ++waiting;
    };
    start();
    start();
    for (int step = 0; step < 100'000; ++step) {
        if (random() % 2 == 0 && waiting > 0) {
            --waiting;
            ++at_work;
            switch (balance.took_call()) {
            case need::start_one:
                EXPECT_EQ(resting, 0) << "one more is started while another one rests";
                start();
                break;
            case need::wake_one:
                ASSERT_GT(resting, 0);
                --resting;
                ++woken;
                ++waiting;
                break;
            case need::nothing:
                break;
            }
            ASSERT_GT(waiting, 0) << "nobody takes the next call";
        } else if (at_work > 0) {
            --at_work;
            ++(balance.waits_again() ? waiting : resting);
        } else if (woken > 0) {
            ASSERT_TRUE(balance.goes_back());
            --woken;
        }
        ASSERT_EQ(balance.waiting(), waiting);
    }
    for (; woken > 0; --woken)
        ASSERT_TRUE(balance.goes_back());
    EXPECT_FALSE(balance.goes_back()) << "one that nobody wants goes back";
}

TEST(thread_balance, works_on_when_no_thread_can_be_started)
{
    thread_balance balance;
    balance.started();
    for (int call = 0; call < 3; ++call) {
        EXPECT_EQ(balance.took_call(), need::start_one);
        EXPECT_EQ(balance.waiting(), 0);
        EXPECT_TRUE(balance.waits_again()) << "the only thread rests";
    }
}

TEST(thread_balance, lets_threads_rest_once_it_is_quiet)
{
    thread_balance balance;
    for (int thread = 0; thread < 8; ++thread)
        balance.started();
    int resting = 0;
    for (int call = 0; call < 200; ++call) {
        EXPECT_EQ(balance.took_call(), need::nothing);
        if (!balance.waits_again())
            ++resting;
        else if (balance.waiting() <= 2)
            break;
    }
    EXPECT_EQ(resting, 6);
    EXPECT_EQ(balance.waiting(), 2);
}

} // namespace
} // namespace session
