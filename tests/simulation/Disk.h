#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace simulation {

/// A disk that knows what was flushed: the system's calls on files below its folder act on it. A
/// power cut loses or tears the rest.
class Disk {
public:
    /// @param before  is told before each call; says whether the process that makes it still lives
    explicit Disk(std::function<bool()> before);
    ~Disk();
    Disk(const Disk&) = delete;
    Disk& operator=(const Disk&) = delete;

    static constexpr const char* kFolder = "/simulated/";

    bool full = false;
    bool broken = false;     ///< every call fails
    bool folderGone = false; ///< for a while
    bool wasUnwell = false;  ///< at any time
    bool wasBroken = false;  ///< likewise, or its folder gone: more than full

    bool has(const std::string& name) const { return m_names.count(name) != 0; }
    std::size_t size() const { return m_names.size(); } ///< files

    /// Loses what was not flushed, or some of it.
    void cutPower(std::mt19937& random);

    // The calls, by file descriptors of its own; errno is set on a failure.
    int open(const std::string& name, int flags, bool inOpenFolder = false);
    /// The name of a file in a folder that is open.
    std::string inFolder(int descriptor, const char* name) const;
    long read(int descriptor, char* buffer, std::size_t size);
    long write(int descriptor, const char* text, std::size_t size);
    int flush(int descriptor);
    int close(int descriptor);
    int remove(const std::string& name);
    int rename(const std::string& from, const std::string& to);

private:
    struct File {
        std::string text;
        std::string flushed;
    };
    using Names = std::map<std::string, std::shared_ptr<File>>;
    /// A name and the file that it gets, or none; several go together.
    using FolderChange = std::vector<std::pair<std::string, std::shared_ptr<File>>>;
    struct Descriptor {
        std::string name;
        std::shared_ptr<File> file; ///< none for a folder
        std::size_t place = 0;
    };

    bool fails();
    void change(const FolderChange& names);

    const std::function<bool()> m_before;
    Names m_names;
    Names m_flushedNames;
    std::vector<FolderChange> m_pending; ///< what of the names is not flushed
    std::map<int, Descriptor> m_open;
    int m_next = 1000000;
};

} // namespace simulation
