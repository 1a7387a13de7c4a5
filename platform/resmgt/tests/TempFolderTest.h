#pragma once

// A test with a folder of its own under the system's temporary folder, made empty before each
// test and removed after it, with the fault seam disarmed.
#include "OsFile.h"
#include "OsFilePath.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace VnTest {

class TempFolderTest : public ::testing::Test {
protected:
    void SetUp() override {
        _dir = std::filesystem::temp_directory_path() /
               ("vn_" + std::to_string(::getpid()) + "_" +
                ::testing::UnitTest::GetInstance()->current_test_info()->test_suite_name() + "_" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(_dir);
        std::filesystem::create_directories(_dir);
    }
    void TearDown() override {
        Vn::OsFaultInjector::disarm();
        std::filesystem::remove_all(_dir);
    }
    Vn::OsFilePath at(std::string const& rel) const {
        return Vn::OsFilePath((_dir / rel).string());
    }
    void put(std::string const& rel, std::string const& text) const {
        std::filesystem::create_directories((_dir / rel).parent_path());
        std::ofstream(at(rel).getString(), std::ios::binary) << text;
    }
    std::string get(std::string const& rel) const {
        std::ifstream in(at(rel).getString(), std::ios::binary);
        std::ostringstream s;
        s << in.rdbuf();
        return s.str();
    }
    bool exists(std::string const& rel) const { return std::filesystem::exists(_dir / rel); }
    // The names in the folder, sorted.
    std::vector<std::string> names() const {
        std::vector<std::string> n;
        for (auto const& e : std::filesystem::directory_iterator(_dir))
            n.push_back(e.path().filename().string());
        std::sort(n.begin(), n.end());
        return n;
    }
    // Runs `work` in a forked child killed at step `step` of the file layer; gives whether the
    // signal came (false when the work ended first). A failed fork fails the test.
    template <class Work>
    static bool killedAtStep(int step, Work&& work) {
        pid_t const child = ::fork();
        EXPECT_GE(child, 0);
        if (child == 0) {
            Vn::OsFaultInjector::raiseSignalAtStep(step, SIGKILL);
            try {
                work();
            } catch (...) {
                ::_exit(3);
            }
            ::_exit(0);
        }
        int status = 0;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        return WIFSIGNALED(status);
    }
    std::filesystem::path _dir;
};

} // namespace VnTest
