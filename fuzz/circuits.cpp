// The kernel's list of open ATM circuits.

#include "harness.h"

#include "readers/AtmFile.h"

using kavo::snmp::AtmFile;

void fuzz::test(std::string_view text) {
    AtmFile list;
    list.m_bVerbose = text.size() % 2 == 1;
    list.parse(text);
    for (int vpi = -1; vpi <= AtmFile::vpiCount; ++vpi) {
        const bool open = vpi >= 0 && vpi < AtmFile::vpiCount && list.m_eVpiList[vpi] != 0;
        expect(list.contains(vpi) == open, "contains() knows the list");
        expect(!open || text.find(std::to_string(vpi)) != text.npos, "an open VPI is in the text");
    }

    AtmFile reused;
    reused.parse("Itf VPI\n0 3\n0 19\n");
    reused.parse(text);
    expect(reused.vpiList2String() == list.vpiList2String(), "nothing stays of the text before");
}
