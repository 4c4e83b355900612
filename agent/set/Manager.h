#pragma once

#include "agent/set/Objects.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

struct snmp_session;

namespace trial {

/// What became of a request.
struct Answer {
    enum class Kind {
        values,  ///< it was done
        refused, ///< the router said no
        none     ///< no answer: it may have been done or not
    };
    Kind kind = Kind::none;
    std::vector<std::optional<Value>> values; ///< nothing for what the router doesn't have
    int error = 0;                            ///< an SNMP error-status
    std::size_t place = 0;                    ///< of what was refused, among what was asked
    std::string trouble;                      ///< why there is no answer
};

/// How long an answer is waited for, and how often the request is sent for it.
struct Patience {
    std::chrono::seconds time;
    int tries;
};

/// The side that asks, with the stock tools' configuration, snmp.conf.
class Manager {
public:
    explicit Manager(std::string host);
    ~Manager();
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    /// Each try is a request of its own, so that a signal can end it between two.
    Answer get(const std::vector<Instance>& instances, Patience patience);
    /// Sends the same request again, which the router does not make twice.
    Answer set(const std::vector<Assignment>& assignments, Patience patience);

    /// Who asks, as far as snmp.conf tells.
    static std::string user();

private:
    Answer request(snmp_pdu* pdu);
    bool open(Answer& answer, Patience patience);
    void close();

    std::string m_host;
    snmp_session* m_session = nullptr;
};

/// A sentence, in the user's words, for the SNMP error of a set.
std::string sentence(const Answer& refusal, const std::vector<Assignment>& assignments);

} // namespace trial
