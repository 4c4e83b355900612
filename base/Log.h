#pragma once

/// The library's one way into the system log. A source unit names itself,
///
///     constexpr log::Unit kUnit = {"Table", "Table"};
///
/// and then writes printf-style lines, "<level>:<tag>: <file>:<source line>  <text>":
///
///     LOG(warning, "read: could not read row %d from table %s", row, name);
///     LOG_IF(m_bVerbose, tracedo, "vpiList: %s", vpiList2String().c_str());
///
/// Of a line that is off, nothing is evaluated. Nothing here throws but a value that is a call.
#define LOG(level, ...) kUnit.write(kavo::snmp::log::Level::level, __LINE__, __VA_ARGS__)
#define LOG_IF(on, level, ...)                                                                     \
    do {                                                                                           \
        if (on)                                                                                    \
            LOG(level, __VA_ARGS__);                                                               \
    } while (false)

/// A std::string_view for "%.*s".
#define PRINTF_VIEW(view) static_cast<int>((view).size()), (view).data()

namespace kavo::snmp::log {

enum class Level { error, warning, trace, tracedo, debug };

struct Unit {
    const char* tag;
    const char* file;

    /// Usual lines need no heap, so that running out of memory can be reported; a long one that
    /// finds no memory is cut.
    [[gnu::format(printf, 4, 5)]] void write(Level level, int sourceLine, const char* format,
                                             ...) const noexcept;
};

} // namespace kavo::snmp::log
