#include "tests/agent/site/Device.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

namespace {

const char* const kClient =
    "for f in /proc/$$/fd/*; do [ ! -S $f ] || echo $f >>sockets; done\n"
    "[ ! -e silent ] || exit\n"
    "while [ -e stall ]; do touch stalled; sleep 0.05; done\n"
    "[ ! -e delay ] || sleep $(cat delay)\n"
    "[ ! -e runs ] || echo \"$1\" >>runs\n"
    "case $1 in *updatekey*) [ ! -e hold ] || { echo $$ >held; while [ -e held ]; do sleep 0.05; "
    "done; } ;; esac\n"
    "real=" QUORLET "\n"
    "[ ! -e fault ] || case $1 in *updatekey* | *insertkey* | *deletekey*)\n"
    "    echo >>writes; [ $(wc -l <writes) != 5 ] || . ./fault ;; esac\n"
    "exec $real \"$@\"\n";

} // namespace

Device::Device() {
    std::string name = (fs::temp_directory_path() / "agent_test.XXXXXX").string();
    folder = mkdtemp(name.data());
    fs::create_directory(folder / "bin");
    write("bin/quorlet", "#!/bin/sh\ncd " + folder.string() + "\n" + kClient);
    run("chmod +x bin/quorlet && " ON_DEVICE " device true");
}

Device::~Device() {
    std::error_code busy; // a client may just be ending
    soon([&] { return fs::remove_all(folder, busy), !busy; });
}

void Device::write(const char* file, const std::string& text) const {
    std::ofstream(folder / file) << text;
}

std::string Device::sql(const std::string& statement) const {
    return run("sqlite3 -batch device/config.db '.timeout 5000' \"" + statement + "\"");
}

int Device::held() const {
    EXPECT_TRUE(soon([this] { return has("held") && fs::file_size(folder / "held") > 0; }));
    return std::atoi(run("cat held").c_str());
}

void Device::letGo() const {
    release("hold");
    release("held");
}

int Device::runs() const {
    return std::stoi(run("wc -l <runs"));
}

void Device::setCircuit(bool open) const {
    run((open ? "cp " : "grep -v ' 8 ' ") + std::string(PVC) + (open ? " " : " >") +
        "pvc.new; mv pvc.new device/pvc");
}
