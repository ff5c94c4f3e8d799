// The command line of quillmark. The only file that knows how options are spelt, and the only one that
// includes the command-line library, which is slow to compile.

#include <fcntl.h>
#include <malloc.h>
#include <sys/sysinfo.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <exception>
#include <functional>
#include <iostream>
#include <sstream>
#include <string_view>

#include "include2/Exception"
#include "tools/Commands.h"
#include "tools/EventLog.h"
#include "tools/Terminal.h"
#include "tools/Version.h"

namespace {
using namespace QuillmarkTool;

/// What a subcommand does once the command line is read.
using Action = std::function<int(Output&)>;

/// A subcommand is one function that describes its options and leaves its action behind.
class CommandLine {
public:
    CommandLine();
    int run(int argc, char** argv);

private:
    CLI::App* command(std::string const& name, std::string const& purpose, std::string const& examples,
                      Action action);
    void addScan();
    void addLists();
    void addShow(std::string const& name, std::string const& purpose, std::string const& example,
                 int (*show)(ShowOptions const&, Output&));
    void addEncode();
    void addMd5();
    void addLines(std::string const& name, std::string const& ends,
                  int (*convert)(LinesOptions const&, Output&));
    void addProcesses();
    void addDns();
    void addServe();
    void addIpc();
    std::string reasonOf(CLI::ParseError const& e) const;

    CLI::App m_app{
        "Reads mail and shows what is in it: who sent it, what its parts hash to, which links and\n"
        "hosts it carries, and which of those are private or bare addresses.",
        "quillmark"};
    Action m_action;
    ScanOptions m_scan;
    ListsOptions m_lists;
    ShowOptions m_show;
    EncodeOptions m_encode;
    Md5Options m_md5;
    LinesOptions m_lines;
    ProcessOptions m_processes;
    DnsOptions m_dns;
    ServeOptions m_serve;
    IpcOptions m_ipc;
};

/// Takes decimal numbers in a range, and says in words what it does not take.
/// @param suffixes  powers of 1024 that may stand behind a number, in any case: "KMG"
CLI::Validator number(std::uint64_t least, std::uint64_t most, std::string_view suffixes = "") {
    return {[=](std::string& text) -> std::string {
                std::string_view rest = text;
                std::uint64_t value = 0;
                auto const [end, error] = std::from_chars(rest.begin(), rest.end(), value);
                rest.remove_prefix(static_cast<std::size_t>(end - rest.begin()));
                unsigned shift = 0;
                if (!rest.empty()) {
                    std::size_t const power =
                        suffixes.find(static_cast<char>(std::toupper(rest.front() & 0x7f)));
                    if (power != std::string_view::npos && rest.size() == 1) {
                        shift = 10 * static_cast<unsigned>(power + 1);
                        rest = {};
                    }
                }
                if (error != std::errc() || !rest.empty() || value > most >> shift || value << shift < least)
                    return text + " is no number from " + std::to_string(least) + " to " +
                           std::to_string(most) + (suffixes.empty() ? "" : ", with K, M or G or without");
                text = std::to_string(value << shift);
                return "";
            },
            ""};
}

constexpr std::uint64_t anyNumber = UINT32_MAX;
constexpr std::uint64_t anyPort = UINT16_MAX;

/// Adds paths of any number, each taken as it stands. The command-line library takes "[a,b]", which may be the name of
/// a file, apart where an option may go on without end; so this one has a number of values, the largest there is.
CLI::Option* addPaths(CLI::App* command, std::string const& name, std::vector<std::string>& paths,
                      std::string const& purpose) {
    CLI::callback_t const take = [&paths](CLI::results_t const& all) {
        paths = all;
        return true;
    };
    return command->add_option(name, take, purpose)
        ->expected(CLI::detail::expected_max_vector_size, CLI::detail::expected_max_vector_size)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->option_text("...");
}

void addColour(CLI::App* command, Colour& colour) {
    command
        ->add_option_function<std::string>(
            "--color,--colour",
            [&colour](std::string const& when) {
                colour = when == "auto" ? Colour::Auto : when == "always" ? Colour::Always : Colour::Never;
            },
            "auto (the default: on a terminal), always or never")
        ->check({[](std::string const& when) {
                     bool const known = when == "auto" || when == "always" || when == "never";
                     return known ? std::string() : when + " is not auto, always or never";
                 },
                 ""})
        ->option_text("WHEN");
}

void addLists(CLI::App* command, std::string& lists) {
    command->add_option("--lists", lists, "take the domain lists from DIR")->option_text("DIR");
}

CommandLine::CommandLine() {
    m_app.set_version_flag("--version", std::string("quillmark ") + version, "show the version");
    m_app.set_help_flag("-h,--help", "show this help");
    m_app.require_subcommand(1);
    m_app.footer(
        "Examples:\n"
        "  quillmark lists                         make the domain lists, once\n"
        "  quillmark scan message.eml              report on a message\n"
        "  quillmark scan --json ~/Maildir         one JSON object for each message of a Maildir\n"
        "  quillmark links < page.html             the links in a text\n"
        "  quillmark host www.example.co.uk        how a host name is split\n"
        "  quillmark dns example.com MX            ask a name server\n"
        "  quillmark serve                         judge messages for whoever asks\n"
        "  quillmark md5 *.eml                     digests, as md5sum prints them\n\n"
        "\"quillmark COMMAND --help\" says more. Exit status: 0 all is well, 1 a message or value is\n"
        "bad, 2 the work could not be done.");
    addScan();
    addLists();
    addShow("address", "Show how an address parses, in a header and in an envelope",
            "  quillmark address '\"Smith, John\" <john@example.com>, ben@example.org'", showAddress);
    addShow("uri", "Show the parts of a URI", "  quillmark uri 'http://user@www.example.com:8080/path?query'",
            showUri);
    addShow("links", "Show the links in a text",
            "  quillmark links 'see www.example.com'\n  quillmark links < page.html", showLinks);
    addShow("host", "Show how a host name is checked and split", "  quillmark host www.example.co.uk",
            showHost);
    addShow("ip", "Show an IP address or a network", "  quillmark ip 192.168.1.1\n  quillmark ip 10.0.0.0/8",
            showIp);
    addEncode();
    addMd5();
    addLines("dos2unix", "LF", dos2unix);
    addLines("unix2dos", "CR LF", unix2dos);
    addProcesses();
    addDns();
    addServe();
    addIpc();
}

CLI::App* CommandLine::command(std::string const& name, std::string const& purpose,
                               std::string const& examples, Action action) {
    CLI::App* const added = m_app.add_subcommand(name, purpose);
    added->footer("Examples:\n" + examples);
    added->callback([this, action = std::move(action)] { m_action = action; });
    return added;
}

void CommandLine::addScan() {
    CLI::App* const added =
        command("scan", "Report on messages: .eml files, mboxes, Maildirs, directories, standard input",
                "  quillmark scan message.eml archive.mbox\n"
                "  quillmark scan --json ~/Maildir | jq .links\n"
                "  find /srv/mail -type f -print0 | quillmark scan -0 --files-from -\n"
                "  quillmark scan < message.eml",
                [this](Output& output) { return scan(m_scan, output); });
    addPaths(added, "PATH", m_scan.paths,
             "files, mboxes, Maildirs and directories; \"-\", or none: standard input");
    CLI::Option* const list = added->add_option(
        "--files-from", m_scan.filesFrom, "also scan the paths in FILE, one a line; \"-\": standard input");
    list->option_text("FILE");
    added->add_flag("-0,--null", m_scan.nul, "the paths in FILE end in NUL, as find -print0 writes them")
        ->needs(list);
    added->add_option("--shard", m_scan.shard, "scan only the K-th of N parts of all paths")
        ->check({[](std::string const& shard) {  // what else is none, the scan itself finds out
                     return shard.empty() ? "an empty text is not K/N, with K from 1 to N" : std::string();
                 },
                 ""})
        ->option_text("K/N");
    added->add_option("--jobs", m_scan.jobs, "scan at most N batches at once; 1 keeps to one core")
        ->transform(number(1, anyNumber))
        ->option_text("N");
    ::addLists(added, m_scan.lists);
    added
        ->add_option("--memory", m_scan.memory,
                     "keep up to SIZE bytes of a body in memory (1M), then swap to a file")
        ->transform(number(0, anyNumber, "KMG"))
        ->option_text("SIZE");
    added->add_option("--tmp", m_scan.temporary, "make swap files in DIR")->option_text("DIR");
    CLI::Option* const verdict =
        added->add_option("--verdict", m_scan.verdict, "ask the daemon at HOST:PORT for verdicts");
    verdict->option_text("HOST:PORT");
    added
        ->add_option("--policy", m_scan.policy, "without a daemon: judge by FILE, not by the built-in policy")
        ->option_text("FILE")
        ->excludes(verdict);
    added->add_flag("--strict", m_scan.strict, "take only what has a scheme, \"www.\" or \"@\" for a link");
    added->add_flag("--json", m_scan.json, "print one JSON object a line for each message");
    added->add_flag("--progress", m_scan.progress, "show progress on the terminal of the report, too");
    addColour(added, m_scan.colour);
}

void CommandLine::addLists() {
    CLI::App* const added = command("lists", "Make the domain lists from the public suffix list",
                                    "  quillmark lists\n  quillmark lists --out /tmp/lists --private",
                                    [this](Output& output) { return lists(m_lists, output); });
    added->add_option("--out", m_lists.out, "write gtld, cctld and idntld to DIR (your own data directory)")
        ->option_text("DIR");
    added
        ->add_option("--source", m_lists.source,
                     "read the public suffix list from FILE (" + m_lists.source + ")")
        ->option_text("FILE");
    added->add_flag("--private", m_lists.withPrivate, "also take the suffixes that companies offer");
}

void CommandLine::addShow(std::string const& name, std::string const& purpose, std::string const& example,
                          int (*show)(ShowOptions const&, Output&)) {
    CLI::App* const added =
        command(name, purpose, example, [this, show](Output& output) { return show(m_show, output); });
    CLI::Option* const text =
        added->add_option("TEXT", m_show.text, "what to look at; \"-\": standard input");
    text->option_text(" ");
    if (name == "links") {
        m_show.text = "-";
        added->add_flag("--strict", m_show.strict,
                        "take only what has a scheme, \"www.\" or \"@\" for a link");
    } else {
        text->required();
    }
    ::addLists(added, m_show.lists);
    added->add_flag("--json", m_show.json, "print JSON");
    addColour(added, m_show.colour);
}

void CommandLine::addEncode() {
    CLI::App* const added = command("encode", "Encode a file, or standard input",
                                    "  quillmark encode base64 picture.png\n"
                                    "  quillmark encode qp < letter.txt\n"
                                    "  quillmark encode scramble < list | quillmark encode scramble",
                                    [this](Output& output) { return encode(m_encode, output); });
    added->add_option("FORM", m_encode.form, "qp, base64, or scramble, which also turns itself back")
        ->required()
        ->check(CLI::IsMember({"qp", "base64", "scramble"}).description(""))
        ->option_text(" ");
    added->add_option("FILE", m_encode.file, "what to encode; \"-\", or none: standard input")
        ->option_text(" ");
    added->add_option("--seed", m_encode.seed, "scramble with the seed N (90); the other forms have none")
        ->transform(number(0, anyNumber))
        // The form is known by now: options are read in the order in which they were added.
        ->check({[this](std::string const&) {
                     bool const hasSeed = m_encode.form.empty() || m_encode.form == "scramble";
                     return hasSeed ? std::string() : m_encode.form + " has no seed, only scramble has one";
                 },
                 ""})
        ->option_text("N");

    CLI::App* const back = command("decode", "Decode a file, or standard input",
                                   "  quillmark decode base64 picture.b64 > picture.png",
                                   [this](Output& output) { return decode(m_encode, output); });
    back->add_option("FORM", m_encode.form, "base64")
        ->required()
        ->check(CLI::IsMember({"base64"}).description(""))
        ->option_text(" ");
    back->add_option("FILE", m_encode.file, "what to decode; \"-\", or none: standard input")
        ->option_text(" ");
}

void CommandLine::addMd5() {
    CLI::App* const added = command("md5", "Print MD5 digests of files, as md5sum does",
                                    "  quillmark md5 *.eml > digests\n  md5sum --check digests",
                                    [this](Output& output) { return md5(m_md5, output); });
    addPaths(added, "FILE", m_md5.files, "\"-\", or none: standard input");
}

void CommandLine::addLines(std::string const& name, std::string const& ends,
                           int (*convert)(LinesOptions const&, Output&)) {
    CLI::App* const added = command(name, "Copy a text so that its lines end in " + ends,
                                    "  quillmark " + name + " in.txt out.txt",
                                    [this, convert](Output& output) { return convert(m_lines, output); });
    added->add_option("FROM", m_lines.from, "the file to read")->required()->option_text(" ");
    added->add_option("TO", m_lines.to, "the file to make, another one")->required()->option_text(" ");
}

void CommandLine::addProcesses() {
    CLI::App* const added = command("ps", "Show the processes that run here: number, name, command line",
                                    "  quillmark ps\n  quillmark ps sshd",
                                    [this](Output& output) { return processes(m_processes, output); });
    added->add_option("NAME", m_processes.name, "only those of this name")->option_text(" ");
    addColour(added, m_processes.colour);
}

void CommandLine::addDns() {
    CLI::App* const added = command("dns", "Ask a name server and show its answer",
                                    "  quillmark dns example.com MX\n"
                                    "  quillmark dns -x 192.0.2.1\n"
                                    "  quillmark dns example.com ANY --server 127.0.0.1 --port 5353 --json",
                                    [this](Output& output) { return dns(m_dns, output); });
    added->add_option("NAME", m_dns.name, "the name to ask for, as it stands")->option_text(" ");
    added->add_option("TYPE", m_dns.type, "the type of its records, by name or number (A)")->option_text(" ");
    added->add_option("-x", m_dns.reverse, "ask for the name of ADDRESS instead")->option_text("ADDRESS");
    added->add_option("--class", m_dns.recordClass, "the class, by name or number (IN)")->option_text("C");
    CLI::Option* const server =
        added->add_option("--server", m_dns.server, "ask the server with this address, not the system's")
            ->option_text("ADDRESS");
    added->add_option("--port", m_dns.port, "on this port (53)")
        ->transform(number(0, anyPort))
        ->option_text("P")
        ->needs(server);
    added->add_flag("--json", m_dns.json, "print JSON");
}

void CommandLine::addServe() {
    CLI::App* const added = command("serve", "Judge messages for whoever asks, on this machine",
                                    "  quillmark serve\n"
                                    "  quillmark serve --port 29002 --policy mine\n"
                                    "  kill -HUP $(pidof quillmark)            read policy and lists again",
                                    [this](Output& output) { return serve(m_serve, output); });
    added->add_option("--port", m_serve.port, "listen on 127.0.0.1, on this port (29001); 0: any free one")
        ->transform(number(0, anyPort))
        ->option_text("PORT");
    added->add_option("--policy", m_serve.policy, "judge by FILE instead of the built-in policy")
        ->option_text("FILE");
    ::addLists(added, m_serve.lists);
}

void CommandLine::addIpc() {
    CLI::App* const ping =
        command("ping", "Ask whether a daemon is there", "  quillmark ping\n  quillmark ping 127.0.0.1:29002",
                [this](Output& output) { return QuillmarkTool::ping(m_ipc, output); });
    ping->add_option("HOST:PORT", m_ipc.daemon, "where it listens (127.0.0.1:29001)")->option_text(" ");

    CLI::App* const ipc = m_app.add_subcommand("ipc", "Speak the protocol of the daemons");
    ipc->require_subcommand(1);
    ipc->footer("Examples:\n  quillmark ipc send 53 < /dev/null");
    CLI::App* const send =
        ipc->add_subcommand("send", "Send a request from standard input, and print the answer");
    send->footer("Examples:\n  quillmark ipc send 53 < /dev/null           the daemon's statistics");
    send->add_option("TYPE", m_ipc.type, "the number of the request's type")
        ->required()
        ->transform(number(0, anyNumber))
        ->option_text(" ");
    send->add_option("--to", m_ipc.daemon, "where the daemon listens (127.0.0.1:29001)")
        ->option_text("HOST:PORT");
    send->callback([this] { m_action = [this](Output& output) { return ipcSend(m_ipc, output); }; });
}

/// What is wrong with a command line. The command-line library misses a subcommand even where a word stands that
/// was meant for one.
std::string CommandLine::reasonOf(CLI::ParseError const& e) const {
    CLI::App const* last = &m_app;  // the subcommand of a subcommand ... as far as they are known
    while (!last->get_subcommands().empty()) last = last->get_subcommands().front();
    if (last->get_require_subcommand_min() == 0) return e.what();
    std::vector<std::string> const rest = last->remaining();
    auto const word = std::find_if(rest.begin(), rest.end(), [](auto const& text) { return text != "--"; });
    if (word == rest.end()) return e.what();
    std::string const kind = word->substr(0, 1) == "-" ? "option" : "command";
    return '"' + *word + "\" is no " + kind + " of " + last->get_display_name();
}

int CommandLine::run(int argc, char** argv) {
    Output output;
    try {
        m_app.parse(argc, argv);
    } catch (CLI::ParseError const& e) {
        if (e.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
            std::ostringstream text;  // the help or the version
            m_app.exit(e, text);
            output.say(text.str());
            output.flush();
            return Fine;
        }
        complain(reasonOf(e));
        std::cerr << "Try \"quillmark --help\".\n";
        return Failed;
    }
    int const result = m_action(output);
    output.flush();
    return result;
}

/// Threads share as many heaps as there are processors, since no more of them work at a time. With a heap each,
/// every one would grow to what the largest message takes, and keep it.
void limitHeaps() {
    ::mallopt(M_ARENA_MAX, std::max(::get_nprocs(), 1));
}

/// Puts something that can neither be read nor written where standard input, output or error is closed. Otherwise
/// the next file that is opened would take its place, and be taken for it.
/// @return whether all three are open
bool keepStandardDescriptors() {
    for (int const standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(standard, F_GETFD) >= 0 || errno != EBADF) continue;
        if (::open("/dev/null", O_PATH) != standard) return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (!keepStandardDescriptors()) return Failed;
    limitHeaps();
    // A reader who has seen enough closes the pipe, and a file may be as large as it may get. Both are
    // noticed where they happen.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    logToStandardError();
    try {
        return CommandLine().run(argc, argv);
    } catch (Output::Closed const& e) {
        if (e.error != EPIPE) complain(std::string("cannot write the report: ") + std::strerror(e.error));
    } catch (Quillmark::Exception const& e) {
        complain(e.asString());
    } catch (std::exception const& e) {
        complain(e.what());
    }
    return Failed;
}
