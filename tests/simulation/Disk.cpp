#include "Disk.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>

namespace simulation {

namespace {

Disk* disk = nullptr; ///< that the system's calls act on

bool isSimulated(const char* name) {
    return disk != nullptr &&
           std::strncmp(name, Disk::kFolder, std::strlen(Disk::kFolder) - 1) == 0;
}

constexpr int kFirst = 1000000; ///< no descriptor of the real system gets there

} // namespace

Disk::Disk(std::function<bool()> before) : m_before(std::move(before)) {
    disk = this;
}

Disk::~Disk() {
    disk = nullptr;
}

bool Disk::fails() {
    if (m_before() && !broken)
        return false;
    errno = EIO;
    return true;
}

void Disk::change(const FolderChange& names) {
    for (const auto& [name, file] : names) {
        if (file != nullptr)
            m_names[name] = file;
        else
            m_names.erase(name);
    }
    m_pending.push_back(names);
}

int Disk::open(const std::string& name, int flags, bool inOpenFolder) {
    if (fails())
        return -1;
    Descriptor opened;
    opened.name = name;
    if (folderGone && !inOpenFolder) {
        errno = ENOENT;
        return -1;
    }
    if ((flags & O_DIRECTORY) == 0) {
        const auto known = m_names.find(name);
        if (known == m_names.end() && (flags & O_CREAT) == 0) {
            errno = ENOENT;
            return -1;
        }
        if (known == m_names.end()) {
            opened.file = std::make_shared<File>();
            change({{name, opened.file}});
        } else {
            opened.file = known->second;
            if ((flags & O_TRUNC) != 0)
                opened.file->text.clear();
        }
    }
    m_open[m_next] = opened;
    return m_next++;
}

std::string Disk::inFolder(int descriptor, const char* name) const {
    return m_open.at(descriptor).name + "/" + name;
}

long Disk::read(int descriptor, char* buffer, std::size_t size) {
    if (fails())
        return -1;
    Descriptor& from = m_open.at(descriptor);
    const std::size_t count = from.file->text.copy(buffer, size, from.place);
    from.place += count;
    return static_cast<long>(count);
}

long Disk::write(int descriptor, const char* text, std::size_t size) {
    if (fails())
        return -1;
    std::string& to = m_open.at(descriptor).file->text;
    if (!full) {
        to.append(text, size);
        return static_cast<long>(size);
    }
    const std::size_t room = to.empty() ? size / 2 : 0;
    to.append(text, room);
    errno = ENOSPC;
    return room != 0 ? static_cast<long>(room) : -1;
}

int Disk::flush(int descriptor) {
    if (fails())
        return -1;
    if (const auto& file = m_open.at(descriptor).file) {
        file->flushed = file->text;
        return 0;
    }
    m_flushedNames = m_names;
    m_pending.clear();
    return 0;
}

int Disk::close(int descriptor) {
    m_open.erase(descriptor);
    return 0;
}

int Disk::remove(const std::string& name) {
    if (fails())
        return -1;
    if (!has(name)) {
        errno = ENOENT;
        return -1;
    }
    change({{name, nullptr}});
    return 0;
}

int Disk::rename(const std::string& from, const std::string& to) {
    if (fails())
        return -1;
    if (!has(from)) {
        errno = ENOENT;
        return -1;
    }
    change({{to, m_names.at(from)}, {from, nullptr}});
    return 0;
}

void Disk::cutPower(std::mt19937& random) {
    m_names = m_flushedNames;
    for (const FolderChange& names : std::exchange(m_pending, {}))
        if (random() % 2 == 0)
            change(names);
    m_pending.clear();
    m_flushedNames = m_names;
    for (auto& [name, file] : m_names) {
        const unsigned long kept = random() % 3;
        if (kept == 0)
            file->text = file->flushed;
        else if (kept == 1 && file->text != file->flushed)
            file->text.resize(random() % (file->text.size() + 1)); // torn
        file->flushed = file->text;
    }
    m_open.clear();
    full = broken = folderGone = false;
}

} // namespace simulation

// The linker has the agent's calls come here.

// NOLINTBEGIN(readability-identifier-naming,bugprone-reserved-identifier)
using namespace simulation;

extern "C" {

int __real_open(const char* name, int flags, mode_t mode);
long __real_read(int descriptor, void* buffer, std::size_t size);
long __real_write(int descriptor, const void* text, std::size_t size);
int __real_fsync(int descriptor);
int __real_close(int descriptor);
int __real_openat(int folder, const char* name, int flags, mode_t mode);
int __real_unlinkat(int folder, const char* name, int flags);
int __real_renameat(int folder, const char* from, int newFolder, const char* to);

int __wrap_open(const char* name, int flags, mode_t mode) {
    return isSimulated(name) ? disk->open(name, flags) : __real_open(name, flags, mode);
}
long __wrap_read(int descriptor, void* buffer, std::size_t size) {
    return descriptor >= kFirst ? disk->read(descriptor, static_cast<char*>(buffer), size)
                                : __real_read(descriptor, buffer, size);
}
long __wrap_write(int descriptor, const void* text, std::size_t size) {
    return descriptor >= kFirst ? disk->write(descriptor, static_cast<const char*>(text), size)
                                : __real_write(descriptor, text, size);
}
int __wrap_fsync(int descriptor) {
    return descriptor >= kFirst ? disk->flush(descriptor) : __real_fsync(descriptor);
}
int __wrap_close(int descriptor) {
    return descriptor >= kFirst ? disk->close(descriptor) : __real_close(descriptor);
}
int __wrap_openat(int folder, const char* name, int flags, mode_t mode) {
    return folder >= kFirst ? disk->open(disk->inFolder(folder, name), flags, true)
                            : __real_openat(folder, name, flags, mode);
}
int __wrap_unlinkat(int folder, const char* name, int flags) {
    return folder >= kFirst ? disk->remove(disk->inFolder(folder, name))
                            : __real_unlinkat(folder, name, flags);
}
int __wrap_renameat(int folder, const char* from, int newFolder, const char* to) {
    return folder >= kFirst
               ? disk->rename(disk->inFolder(folder, from), disk->inFolder(newFolder, to))
               : __real_renameat(folder, from, newFolder, to);
}
}
// NOLINTEND(readability-identifier-naming,bugprone-reserved-identifier)
