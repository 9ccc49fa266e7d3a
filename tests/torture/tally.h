// Counts the runs of a torture for the report of `./dev torture`.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <set>
#include <string>
#include <utility>

namespace torture {

/// Counts runs, those among them in which an expectation failed, and what was made to fail. When it
/// is destroyed its numbers become properties of the test, and so part of its JSON results.
class Tally {
public:
    /// \param kind what fails in what: "Windows calls of an update"
    explicit Tally(std::string kind) : kind_(std::move(kind)) {}
    Tally(const Tally&) = delete;
    Tally& operator=(const Tally&) = delete;
    ~Tally() {
        EXPECT_GT(runs_, 0u) << kind_;
        testing::Test::RecordProperty("torture", kind_);
        record("runs", runs_);
        record("failed_runs", failedRuns_);
        record("calls", calls_);
        record("functions", functions_.size());
        record("codes", codes_);
        record("allocations", allocations_);
    }

    /// Counts a call that is made to fail and, for the first one of a function, its codes.
    void addCall(const std::string& function, std::size_t codes) {
        ++calls_;
        if (functions_.insert(function).second)
            codes_ += codes;
    }
    void addAllocation() { ++allocations_; }

    /// Does a run with its expectations, naming it in failures.
    template <class Action>
    void run(const std::string& name, Action action) {
        const testing::ScopedTrace trace(__FILE__, __LINE__, name);
        const int before = failedExpectations();
        action();
        ++runs_;
        failedRuns_ += failedExpectations() != before;
    }

    /// False after some failed runs: there is nothing more to learn then.
    bool goesOn() const { return failedRuns_ < enoughFailedRuns; }
    const std::set<std::string>& functions() const { return functions_; }

private:
    static constexpr std::size_t enoughFailedRuns = 10;

    static void record(const std::string& name, std::size_t number) {
        testing::Test::RecordProperty(name, std::to_string(number));
    }

    static int failedExpectations() {
        const testing::TestResult& result =
            *testing::UnitTest::GetInstance()->current_test_info()->result();
        int failed = 0;
        for (int i = 0; i != result.total_part_count(); ++i)
            failed += result.GetTestPartResult(i).failed();
        return failed;
    }

    std::string kind_;
    std::size_t runs_ = 0;
    std::size_t failedRuns_ = 0;
    std::size_t calls_ = 0;
    std::set<std::string> functions_;
    std::size_t codes_ = 0;
    std::size_t allocations_ = 0;
};

} // namespace torture
