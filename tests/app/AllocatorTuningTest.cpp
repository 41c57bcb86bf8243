// The allocator as the program sets it: what a burst of work on another thread freed goes back
// to the system, even after a big block freed before it, which would otherwise have raised the
// thresholds to its own size.

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "app/AllocatorTuning.hpp"

namespace quillstow {
namespace {

long residentAnonymousKiB() {
    std::ifstream status("/proc/self/status");
    std::string key;
    long value = 0;
    while (status >> key) {
        if (key == "RssAnon:" && status >> value) return value;
        status.ignore(1 << 10, '\n');
    }
    return -1;
}

TEST(AllocatorTuning, WhatAThreadFreedAfterABigBlockGoesBackToTheSystem) {
    tuneAllocatorForLongIdles();
    constexpr std::size_t big = 16 << 20;
    constexpr std::size_t block = 256 << 10;
    long held = 0;
    long heldAfterFreeing = 0;
    std::thread([&] {
        // A pass's plan: one big block, written to and freed. Untuned, glibc would carve any
        // block up to its size from the arena from now on, and keep twice that free at the top.
        auto plan = std::make_unique<char[]>(big);
        std::memset(plan.get(), 1, big);
        plan.reset();
        std::vector<std::unique_ptr<char[]>> blocks;
        blocks.reserve(big / block);
        const long before = residentAnonymousKiB();
        while (blocks.size() < big / block) {
            blocks.emplace_back(new char[block]);
            std::memset(blocks.back().get(), 1, block);
        }
        held = residentAnonymousKiB() - before;
        blocks.clear();
        heldAfterFreeing = residentAnonymousKiB() - before;
    }).join();
    EXPECT_GT(held, long(big / 1024) - 1024) << "KiB resident while in use";
    EXPECT_LT(heldAfterFreeing, 2048) << "KiB still resident after the blocks were freed";
}

}  // namespace
}  // namespace quillstow
