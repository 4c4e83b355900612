#pragma once

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace fs = std::filesystem;

/// A test with a device of its own.
class DeviceTest : public testing::Test {
protected:
    struct Result {
        int status;
        std::string out;
    };

    DeviceTest() {
        std::string name = (fs::temp_directory_path() / "device_test.XXXXXX").string();
        m_folder = mkdtemp(name.data());
        m_device = m_folder / "device";
        EXPECT_EQ(0, on("true").status);
    }
    ~DeviceTest() override { fs::remove_all(m_folder); }

    /// Runs a shell command; its standard error goes to the file "err".
    Result shell(const std::string& command) const {
        FILE* pipe = popen((command + " 2>'" + error().string() + "'").c_str(), "r");
        Result result{};
        for (int c; (c = fgetc(pipe)) != EOF;)
            result.out += static_cast<char>(c);
        result.status = WEXITSTATUS(pclose(pipe));
        return result;
    }

    Result on(const std::string& command) const {
        return shell(ON_DEVICE " '" + m_device.string() + "' " + command);
    }

    /// Runs a statement; the rows that it gives are lines of "value|value", and what is wrong with
    /// it.
    std::string sql(const std::string& statement) const {
        return shell("{ sqlite3 -batch '" + database().string() + "' \"" + statement + "\" 2>&1; }")
            .out;
    }

    fs::path database() const { return m_device / "config.db"; }
    fs::path error() const { return m_folder / "err"; }

    fs::path m_folder, m_device;
};
