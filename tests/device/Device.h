#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

/// A connection to a device's database.
class Database {
public:
    explicit Database(const fs::path& file) {
        EXPECT_EQ(SQLITE_OK, sqlite3_open(file.c_str(), &m_handle));
    }
    ~Database() { sqlite3_close(m_handle); }

    /// Runs a statement; the rows that it gives come as "value|value".
    Lines run(const std::string& sql) {
        Lines rows;
        const auto take = [](void* out, int count, char** values, char**) {
            std::string row;
            for (int i = 0; i < count; ++i)
                row += (i > 0 ? "|" : "") + std::string(values[i] != nullptr ? values[i] : "");
            static_cast<Lines*>(out)->push_back(row);
            return 0;
        };
        EXPECT_EQ(SQLITE_OK, sqlite3_exec(m_handle, sql.c_str(), take, &rows, nullptr)) << sql;
        return rows;
    }

private:
    sqlite3* m_handle = nullptr;
};

/// A test with a device of its own.
class DeviceTest : public testing::Test {
protected:
    DeviceTest() {
        std::string name = (fs::temp_directory_path() / "device_test.XXXXXX").string();
        m_folder = mkdtemp(name.data());
        m_device = m_folder / "device";
        EXPECT_EQ(0, std::system((ON_DEVICE " '" + m_device.string() + "' true").c_str()));
    }
    ~DeviceTest() override { fs::remove_all(m_folder); }

    fs::path database() const { return m_device / "config.db"; }

    fs::path m_folder, m_device;
};
