#pragma once
// Who judges the messages of a scan: a daemon, or the scan itself.

#include <optional>
#include <string>

#include "tools/Daemon.h"
#include "tools/Judge.h"

namespace QuillmarkTool {

class Arbiter {
public:
    /// @param daemon  where the daemon listens; empty: nobody is asked
    /// @param policy  the file to judge by without a daemon; empty: the built-in policy
    /// Throws NoAnswer for a daemon that is not there, BadPolicy for a policy that is none.
    Arbiter(std::string const& daemon, std::string const& policy);

    /// Throws NoAnswer.
    Verdict judge(MessageReport const& report) const;
    /// Who judges, and by what: "127.0.0.1:29001", "the built-in policy".
    std::string const& name() const { return m_daemon ? m_daemon->text : m_judge->policy().name; }

private:
    Verdict ask(Features features) const;

    std::optional<Endpoint> m_daemon;
    std::optional<Judge> m_judge;  // there when no daemon is
};

}  // namespace QuillmarkTool
