#pragma once
// The report for people.

#include <cstddef>
#include <string>

#include "tools/MessageReport.h"
#include "tools/Terminal.h"

namespace QuillmarkTool {

/// What a whole scan came to.
struct Totals {
    std::size_t messages = 0;
    std::size_t bad = 0;  ///< messages and files with errors
    std::size_t parts = 0;
    std::size_t links = 0;
    std::size_t ipLiterals = 0;
    std::size_t privates = 0;
    std::size_t withoutDomain = 0;
    std::size_t review = 0;   ///< messages to review
    std::size_t reject = 0;   ///< messages to reject
    std::string judge;        ///< who judged; empty: nobody
    std::size_t skipped = 0;  ///< files below a directory that are no mail

    void add(MessageReport const& report);
    void add(Totals const& more);  ///< the numbers
};

/// One message, from its title to the empty line behind it.
std::string reportOf(MessageReport const& report, Painter const& paint);

/// The last lines: who judged, and what there was.
std::string reportOf(Totals const& totals, Painter const& paint);

/// What a reader should know about a link's host: "IP address", "private"; empty when nothing.
std::string remarksOn(LinkReport const& link);

/// A label and what belongs to it, on one line of its own.
std::string labelled(std::string const& label, std::string const& value, Painter const& paint);

}  // namespace QuillmarkTool
