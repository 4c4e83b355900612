#include "Journal.h"

#include "Log.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

#include <fcntl.h>
#include <unistd.h>

namespace agent {

namespace {

// corvantad change 1
// set, or pending
// the record
// end CRC, of all that comes before this line

constexpr std::string_view kHeading = "corvantad change 1\n";
constexpr std::string_view kSet = "set\n";
constexpr std::string_view kPending = "pending\n";
constexpr std::string_view kEnd = "end ";
constexpr std::size_t kEndSize = kEnd.size() + 8 + 1;

std::string checksumOf(std::string_view text) {
    std::uint32_t crc = ~std::uint32_t{0}; // CRC-32 as in Ethernet
    for (const char c : text) {
        crc ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1 ^ ((crc & 1) != 0 ? 0xedb88320U : 0U);
    }
    std::array<char, 9> digits{};
    std::snprintf(digits.data(), digits.size(), "%08x", static_cast<unsigned>(~crc));
    return digits.data();
}

bool skip(std::string_view& text, std::string_view start) {
    const bool found = text.substr(0, start.size()) == start;
    if (found)
        text.remove_prefix(start.size());
    return found;
}

bool failed(const char* what, const std::string& file) {
    log(LOG_ERR, std::string("cannot ") + what + " " + file + ": " + std::strerror(errno));
    return false;
}

bool writeAll(const std::string& file, const std::string& text) {
    const int descriptor =
        open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (descriptor < 0)
        return false;
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t size = write(descriptor, text.data() + done, text.size() - done);
        if (size < 0 && errno != EINTR)
            break;
        done += size > 0 ? static_cast<std::size_t>(size) : 0;
    }
    const bool whole = done == text.size() && fsync(descriptor) == 0;
    const int error = errno;
    const bool closed = close(descriptor) == 0;
    if (!whole)
        errno = error;
    return whole && closed;
}

} // namespace

std::string toText(const Entry& entry) {
    std::string text(kHeading);
    text.append(entry.pending ? kPending : kSet).append(entry.record.serialize());
    return text + std::string(kEnd) + checksumOf(text) + "\n";
}

std::optional<Entry> toEntry(std::string_view text) {
    if (text.size() < kEndSize)
        return std::nullopt;
    std::string_view body = text.substr(0, text.size() - kEndSize);
    if (text.substr(body.size()) != std::string(kEnd) + checksumOf(body) + "\n")
        return std::nullopt;
    Entry entry;
    if (!skip(body, kHeading))
        return std::nullopt;
    entry.pending = skip(body, kPending);
    if (!entry.pending && !skip(body, kSet))
        return std::nullopt;
    auto record = Record::parse(body);
    if (!record)
        return std::nullopt;
    entry.record = std::move(*record);
    return entry;
}

Journal::Journal(const std::string& folder)
    : m_folder(folder), m_file(folder + "/change.journal") {}

std::optional<Entry> Journal::load() {
    std::ifstream file(m_file, std::ios::binary);
    if (!file.is_open())
        return std::nullopt;
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    std::optional<Entry> entry = toEntry(text);
    if (entry)
        return entry;
    const std::string aside = m_file + ".damaged";
    log(LOG_ERR,
        m_file + " is damaged or of another version: a change may be half done; kept as " + aside);
    m_damaged = true;
    if (std::rename(m_file.c_str(), aside.c_str()) != 0 || !syncFolder())
        failed("keep aside", m_file);
    return std::nullopt;
}

bool Journal::save(const Entry& entry) {
    const std::string beside = m_file + ".new";
    if (writeAll(beside, toText(entry)) && std::rename(beside.c_str(), m_file.c_str()) == 0 &&
        syncFolder())
        return true;
    return failed("write", m_file);
}

bool Journal::clear() {
    if ((unlink(m_file.c_str()) == 0 || errno == ENOENT) && syncFolder())
        return true;
    return failed("remove", m_file);
}

bool Journal::syncFolder() const {
    const int descriptor = open(m_folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    const bool synced = fsync(descriptor) == 0;
    close(descriptor);
    return synced;
}

} // namespace agent
