#include <corvanta.h>

#include <iostream>

// What C does not see. The client here is the shell's own echo; the database's is not there, so
// that no bridge is found.
int main() {
    std::string answer;
    int bridge = 0, lan = 0, wan = 0, filter = 0;
    const int ran = call_cmd("echo 42", answer, 7);
    const int found = default_Bridge(access_get, &bridge, &lan, &wan, &filter);
    std::cout << time2string() << ' ' << answer << ' ' << found << '\n';
    return ran == CORVANTA_OK && answer == "42" && found == CORVANTA_OK && bridge == -1 ? 0 : 1;
}
