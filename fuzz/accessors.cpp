// The client's answers through the command runner and each typed accessor: a value to write, then
// the answers.

#include "harness.h"

#include <corvanta.h>

void fuzz::test(std::string_view input) {
    std::string value = takeValue();
    const std::string before = value;
    const std::string untouched = "untouched, and longer than any answer";
    m_bVerbose = input.size() % 2 == 1;
    const auto run = [](auto call) {
        start(50);
        return call();
    };

    // The runner's three forms.
    char command[200] = " quorlet \" size Atm ;\" ";
    const int length = static_cast<int>(strlen(command));
    std::string whole = untouched;
    const int status = run([&] { return call_cmd(std::string(command), whole, 3); });
    expect(started <= 20, "a command is tried up to 20 times");
    expect(status == CORVANTA_OK ? whole.size() < 29 : whole == untouched, "short, or untouched");
    char text[40];
    strcpy(text, untouched.c_str());
    const int room = static_cast<int>(value.size() % sizeof text) + 1;
    const auto same = [&](int other) { expect(other == status, "each form gives the status"); };
    same(run([&] { return call_cmd(command, sizeof command, length, text, room, 7); }));
    expect(!strncmp(text, whole.c_str(), static_cast<std::size_t>(room - 1)), "cut, or untouched");
    same(run([&] { return call_cmd(command, sizeof command, length); }));
    expect(status != CORVANTA_OK || !strcmp(command, whole.c_str()), "in place of the command");

    // Numbers.
    int number = 4711;
    int result = run([&] { return config_int_access_by_id(access_get, &number, "Atm", "Vpi", 3); });
    expect(result == CORVANTA_OK || number == 4711, "untouched");
    same(run([&] { return config_int_access_by_id(access_set, &number, "Atm", "Vpi", 3); }));
    number = 4711;
    result =
        run([&] { return config_int_read_by_key(&number, "Bridge", "Id", "Name", value.c_str()); });
    expect(result == CORVANTA_OK || number == 4711, "untouched");

    // Texts.
    int size = -1;
    result = run([&] {
        return config_string_access_by_id(access_get, text, room, &size, "Atm", "Name", 2);
    });
    expect(result == CORVANTA_OK ? size >= 0 && size <= room - 2 && text[size] == '\0' : size == -1,
           "a text that is read fits");
    size = -1;
    result = run([&] { return config_row_read(value.c_str(), 1, text, room, &size); });
    expect(result == CORVANTA_OK ? size == static_cast<int>(strlen(text)) && size < room
                                 : size == -1,
           "a row is whole, or refused");
    size = static_cast<int>(value.size());
    run([&] {
        return config_string_access_by_id(access_set, value.data(), size, &size, "Atm", "Name", 2);
    });
    expect(value == before, "a write leaves the value");
    result = run([&] { return config_string_access_by_id(access_set, value, "Atm", "Name", 2); });
    expect(value == before && (value.size() <= 18 || started == 0), "too long a text runs nothing");
    result = run([&] { return config_string_access_by_id(access_get, value, "Atm", "Name", 2); });
    expect(result == CORVANTA_OK ? value.size() <= 18 : value == before, "short, or untouched");
}
