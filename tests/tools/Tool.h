#pragma once
// Runs the built command as a person or a script does, and says what came of it.

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Support.h"

namespace QuillmarkTest {

/// What a run of the command left behind.
struct Ran {
    int status = -1;  ///< exit code; 128 and the signal's number for a run that a signal ended
    std::string out;
    std::string err;
};

/// How a run differs from the usual: no input, the source tree as the working directory, a home and a
/// data directory where nothing is.
struct Surroundings {
    std::string input{};
    std::vector<std::pair<std::string, std::string>> environment{};
    std::string output{};       ///< write standard output to this file instead; Ran::out stays empty
    std::string program{};      ///< run this file instead of the one that was built
    unsigned int fileSize = 0;  ///< how many bytes a file may get that the command writes; 0 for no limit
    std::string inputFrom{};    ///< read standard input from here instead
};

/// Runs `quillmark` with @p arguments.
Ran quillmark(std::vector<std::string> const& arguments, Surroundings const& surroundings = {});

/// Starts the command with standard input from a pipe and interrupts it, as Ctrl-C does, once @p ready
/// says so. @p input stands in the pipe, whose other end stays open.
Ran quillmarkInterrupted(std::vector<std::string> const& arguments, std::string const& input,
                         std::function<bool()> const& ready);

/// A run that goes on beside the test.
class Running {
public:
    explicit Running(std::vector<std::string> const& arguments, Surroundings const& surroundings = {});
    ~Running();  ///< ends it, if it has not ended
    Running(Running const&) = delete;
    Running& operator=(Running const&) = delete;

    std::string line();   ///< the next line of standard output, waited for; empty when there is none
    std::string error();  ///< the same of standard error
    /// The same, where empty lines are lines. @return whether there was one
    bool error(std::string& line);
    void closeOutput();  ///< from now on nobody reads its standard output
    void signal(int number) const;
    int process() const { return m_child; }  ///< its number
    int wait();                              ///< waits for the end. @return as Ran::status

private:
    TemporaryDirectory m_place;
    int m_child = -1;
    int m_out = -1;
    int m_err = -1;
};

/// Runs the command with standard output, or only standard error, on a terminal of its own, 100 columns wide.
/// What the terminal gets is Ran::out, with its line ends as "\n".
enum class Terminal { Everything, ErrorsOnly };
Ran quillmarkOnTerminal(Terminal terminal, std::vector<std::string> const& arguments,
                        Surroundings const& surroundings = {});

/// Runs @p action in a process of its own with standard output in a file and standard error on a
/// terminal, 100 columns wide, and gives what the terminal got.
std::string errorsOnTerminal(std::function<void()> const& action);

/// A directory with domain lists, made by the command from a few rules once for all tests.
std::string const& testLists();

/// The directory with the example messages, relative to the working directory of a run.
inline constexpr char examples[] = "examples/messages";

/// The text in lines, without their ends.
std::vector<std::string> linesOf(std::string const& text);

}  // namespace QuillmarkTest
