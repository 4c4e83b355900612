// The stand-in's client as tests see it who want to know what a failure at any moment does: it is
// the real client, linked in whole, and does what the file "fault" in the device's folder asks for
// at one of its runs:
//
//     WAY KIND NUMBER     the NUMBERth command that reads (r) or writes (w)
//
// Each command goes into the file "commands" there; the file "hit" says that it has happened, and
// is locked while a process of a client that hangs is left. $AGENT is the agent's process.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

int quorlet(int argc, char** argv); // the real client's main()

namespace {

char* command[3] = {};

/// The command is done, but nobody gets to see its answer.
void runUnseen() {
    if (fork() == 0) {
        dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
        exit(quorlet(2, command));
    }
    wait(nullptr);
}

/// Another program holds the database, beyond the agent's set deadline.
void lockDatabase() {
    if (fork() == 0) {
        setsid();
        dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
        for (int file = 3; file < 64; ++file) // what the agent holds, its client must, but not this
            close(file);
        execlp("sqlite3", "sqlite3", "-batch", "config.db", ".timeout 5000", "BEGIN EXCLUSIVE",
               ".shell touch locked; sleep " LOCK_SECONDS "; rm locked", "COMMIT", nullptr);
        _exit(127);
    }
    while (access("locked", F_OK) != 0)
        usleep(1000);
}

/// Counts the command in. @return whether it is the one
bool isMeant(char kind, int number) {
    const bool writes = strstr(command[1], "updatekey") != nullptr ||
                        strstr(command[1], "insertkey") != nullptr ||
                        strstr(command[1], "deletekey") != nullptr;
    FILE* file = fopen("commands", "a+");
    flock(fileno(file), LOCK_EX); // one that a killed agent has left may be under way still
    fprintf(file, "%c%s\n", writes ? 'w' : 'r', command[1]);
    rewind(file);
    int count = 0;
    for (char line[300]; fgets(line, sizeof line, file) != nullptr;)
        count += line[0] == kind;
    fclose(file);
    return kind == (writes ? 'w' : 'r') && count == number;
}

void killSide(const char* agent, const char* side) {
    char line[100];
    snprintf(line, sizeof line, "pkill -KILL -P %s corvantad-%s", agent, side);
    if (system(line) != 0)
        exit(3);
}

void fail(char way) {
    const char* const number = getenv("AGENT");
    const pid_t agent = number != nullptr ? atoi(number) : 0;
    if (agent <= 1)
        exit(3);
    flock(open("hit", O_RDWR | O_CREAT, 0644), LOCK_SH); // kept until the last process ends
    if (strchr("AGD", way) != nullptr)
        runUnseen();
    switch (way) {
    case 'a': // the agent dies alone, the client goes on
        kill(agent, SIGKILL);
        break;
    case 'A':
        kill(agent, SIGKILL);
        exit(1);
    case 'g': // the agent dies with its whole process group, and with the client
    case 'G':
        kill(agent, SIGKILL);
        kill(-agent, SIGKILL);
        exit(1);
    case 'n': // one side of the agent dies: the one that faces the network, or the device's
    case 'v':
        killSide(number, way == 'n' ? "net" : "dev");
        break;
    case 'd': // the client dies
    case 'D':
        raise(SIGKILL);
        break;
    case 'l':
        lockDatabase();
        break;
    case 'h': // the client hangs, with a child and a grandchild
        if (fork() == 0)
            fork();
        sleep(600); // longer than any test waits for its end
        exit(1);
    }
}

} // namespace

int main(int argc, char** argv) {
    char way = 0;
    char kind = 0;
    int number = 0;
    command[0] = argv[0];
    command[1] = argc > 1 ? argv[1] : argv[0];
    const char* const device = getenv("CORVANTA_DEVICE");
    if (device != nullptr && chdir(device) == 0) {
        if (FILE* plan = fopen("fault", "r")) {
            const int fields = fscanf(plan, "%c %c %d", &way, &kind, &number);
            fclose(plan);
            if (fields == 3 && isMeant(kind, number))
                fail(way);
        }
    }
    return quorlet(argc, argv);
}
