#include "tests/library/Sequence.h"

#include "objects/data_cache.h"
#include "objects/managed_objects.h"

#include <map>
#include <set>

namespace sequence {

void fillCache(const State& before) {
    delete mgmt_o.cache;
    mgmt_o.cache = new data_cache;
    mgmt_o.cache->init();
    for (int row = 1; row <= 16; ++row)
        mgmt_o.cache->vlan_intern[row] = {before.vlan[row], (row % 2 ? "eth0.10" : "wan1.10") +
                                                                std::to_string((row + 1) / 2)};
    for (int slot = 1; slot <= 8; ++slot)
        mgmt_o.cache->bridge[slot].intern_Id = before.slot[slot];
}

namespace {

using Refusals = std::map<const Step*, Answer>;

/** What comes of a call. */
struct Course {
    State left;
    int status = 0;
    std::vector<std::pair<const Step*, Answer>> runs = {};
    Lines log = {};
    std::vector<unsigned> pauses = {};
    unsigned long failures = client_failures();
};

/** Goes through steps. @return the status when they end the sequence */
std::optional<int> follow(const Steps& steps, const Refusals& refusals, Course& course) {
    for (const Step& step : steps) {
        if (step.command.empty()) {
            step.always(course.left);
            const auto status = step.end ? step.end : follow(step.together, refusals, course);
            if (status && step.failure == Step::ends)
                return status;
            continue;
        }
        const auto refusal = refusals.find(&step);
        const Answer answer = refusal == refusals.end() ? Answer(step.answer) : refusal->second;
        const int said = step.statusOf(answer);
        const int status = said != 0 ? said : step.isOther(answer);
        const std::size_t runs = status == 2 ? 20 : 1;
        std::string shown = answer.text;
        if (!shown.empty() && shown.back() == '\n' && status != 2 && status != 3)
            shown.pop_back();
        course.runs.insert(course.runs.end(), runs, {&step, answer});
        course.pauses.insert(course.pauses.end(), runs - 1, 1);
        course.log.insert(course.log.end(), step.kind.traced ? runs : 0,
                          "trace:corvanta: " + step.command + " ==> " + shown);
        step.always(course.left);
        course.failures += said != 0 && said != noRow; // once a command, not once a run
        if (status == 0)
            step.onSuccess(course.left);
        else if (step.failure == Step::ends || (step.onlyStatus != 0 && step.onlyStatus != status))
            return step.end.value_or(status);
        else if (step.failure == Step::isElsewhere)
            return follow(step.elsewhere, refusals, course).value_or(0);
    }
    return std::nullopt;
}

/** Every way in which a command can be refused. */
std::map<std::string, Answer> refusals(const Step& step) {
    std::map<std::string, Answer> ways = {
        {"not started", notStarted},
        {"unknown row", unknownRow + "\n"},
        {"locked", locked + "\n"},
        {"too long", "1" + std::string(step.kind.once ? 98 : 28, 'x')}};
    if (step.kind.exact)
        ways["another answer"] = "?";
    return ways;
}

/** Calls the handler, with some commands refused, and compares everything. @return what ran */
Course expect(const Sequence& sequence, const Refusals& refused) {
    Course course = {sequence.before};
    course.status = follow(sequence.steps, refused, course).value_or(0);
    std::size_t at = 0;
    const auto due = [&] {
        return at < course.runs.size() ? course.runs[at].first->command : "the end";
    };
    platform.client = [&](const std::string& command) {
        EXPECT_EQ(due(), command);
        return due() == command ? course.runs[at++].second : notStarted;
    };
    platform.sleeps.clear();
    State left = sequence.before;
    fillCache(left);
    const int status = sequence.handler(sequence.access, left);
    for (int row = 1; row <= 16; ++row)
        left.vlan[row] = mgmt_o.cache->vlan_intern[row].Enable;
    for (int slot = 1; slot <= 8; ++slot)
        left.slot[slot] = mgmt_o.cache->bridge[slot].intern_Id;
    EXPECT_EQ("the end", due());
    EXPECT_EQ(course.status, status);
    EXPECT_EQ(course.left.show(), left.show());
    EXPECT_EQ(course.log, platform.takeLog());
    EXPECT_EQ(course.pauses, platform.sleeps);
    EXPECT_EQ(course.failures, client_failures());
    return course;
}

/** Refuses, on top of what is refused, each command that runs then for the first time. */
void refuseMore(const Sequence& sequence, const Refusals& refused, std::set<const Step*>& seen) {
    std::vector<const Step*> fresh;
    for (const auto& [step, answer] : expect(sequence, refused).runs)
        if (seen.insert(step).second)
            fresh.push_back(step);
    for (const Step* step : fresh)
        for (const auto& [way, answer] : refusals(*step)) {
            if (testing::Test::HasFailure())
                return;
            SCOPED_TRACE(step->command + way);
            Refusals more = refused;
            more[step] = answer;
            refuseMore(sequence, more, seen);
        }
}

} // namespace

void refuseEach(const Sequence& sequence) {
    std::set<const Step*> seen;
    refuseMore(sequence, {}, seen);
}

} // namespace sequence
