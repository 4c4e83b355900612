// The client's answers to the table reader: a count, then rows.

#include "harness.h"

#include "readers/Table.h"

#include <stdexcept>

void fuzz::test(std::string_view input) {
    kavo::snmp::Table table("Atm");
    table.initialize(input.size() % 2 == 1);
    start(5);
    const int rows = table.size();
    expect(rows == table.m_iRowCount || (rows == 0 && table.m_iRowCount == -1), "a count is kept");
    try {
        table.getIntegerValue("Vpi", 1);
    } catch (const std::out_of_range&) {
        int fields = 0;
        for (const char* at = table.m_szLine; *at != '\0'; ++at)
            fields += *at != '|' && (at == table.m_szLine || at[-1] == '|');
        expect(fields < 3, "only a row that is too short throws");
    }
    expect(table.getIntegerValue("Vci", 1) == 0, "no other column is known");

    start(1);
    int value = 4711;
    const int status = table.getIntegerValue(value, "Vci", "Id", "3");
    expect(status == CORVANTA_OK || (status == CORVANTA_FAILED && value == 4711),
           "a failed read leaves the value");
    expect(memchr(table.m_szLine, '\0', sizeof table.m_szLine), "the line ends in its buffer");
}
