// Test main shared by every test executable.
//
// A listener compares the tracked allocator's live-block and live-byte counts
// before and after every test; any difference is reported as a leak and makes
// the executable exit with a failure status.
#include <core/memtracker.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdint>

namespace {

bool g_leaked = false;

class LeakCheck : public ::testing::EmptyTestEventListener {
    std::uint64_t m_blocks = 0;
    std::uint64_t m_bytes = 0;

    void OnTestStart(::testing::TestInfo const&) override {
        m_blocks = core::memTracker_liveBlocks();
        m_bytes = core::memTracker_liveBytes();
    }
    void OnTestEnd(::testing::TestInfo const& info) override {
        const std::uint64_t blocks = core::memTracker_liveBlocks();
        const std::uint64_t bytes = core::memTracker_liveBytes();
        if (blocks != m_blocks || bytes != m_bytes) {
            g_leaked = true;
            std::fprintf(stderr, "LEAK in %s.%s: live blocks %llu -> %llu, live bytes %llu -> %llu\n",
                         info.test_suite_name(), info.name(), static_cast<unsigned long long>(m_blocks),
                         static_cast<unsigned long long>(blocks), static_cast<unsigned long long>(m_bytes),
                         static_cast<unsigned long long>(bytes));
        }
    }
};

}  // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::UnitTest::GetInstance()->listeners().Append(new LeakCheck);
    const int rc = RUN_ALL_TESTS();
    if (g_leaked) {
        std::fprintf(stderr, "tracked allocator: leak detected\n");
        return 1;
    }
    return rc;
}
