#pragma once
// The commands of quillmark: what each can be told, and the call that carries it out. Main reads the
// command line into these; a command knows nothing of where its options came from.

#include <string>
#include <vector>

#include "tools/Terminal.h"

namespace QuillmarkTool {

/// How a command ends.
enum ExitCode : int {
    Fine = 0,
    Findings = 1,  ///< the work was done; some message or value is bad
    Failed = 2,    ///< the command line, the lists or the output stand in the way of the work
};

struct ScanOptions {
    std::vector<std::string> paths;  ///< "-" is standard input
    std::string lists;               ///< directory of the domain lists; empty: where they usually are
    std::string temporary;           ///< directory of swap files; empty: where they usually are
    unsigned int memory = 1U << 20;  ///< bytes of a body kept in memory before it goes to a swap file
    std::string verdict;             ///< "host:port" of the daemon that judges; empty: judge here
    std::string policy;              ///< the file to judge by; empty: the built-in policy
    std::string filesFrom;           ///< a file that lists more paths; "-" is standard input, empty none
    bool nul = false;                ///< the paths in it end in NUL, not in a line end
    std::string shard;               ///< "K/N": scan only what belongs to the K-th of N heaps; empty: all
    unsigned int jobs = 0;  ///< how many batches may be scanned at once; 0: as many as the pool takes
    bool strict = false;    ///< take only links with a scheme, "www." or "@"
    bool json = false;
    bool progress = false;  ///< show how far it is, even on the terminal that the report goes to
    Colour colour = Colour::Auto;
};
int scan(ScanOptions const& options, Output& output);

struct ListsOptions {
    std::string source = "/usr/share/publicsuffix/public_suffix_list.dat";
    std::string out;  ///< directory to write to; empty: among the user's data
    bool withPrivate = false;
};
int lists(ListsOptions const& options, Output& output);

struct ShowOptions {
    std::string text;  ///< "-": standard input
    std::string lists;
    bool strict = false;  ///< of links only
    bool json = false;
    Colour colour = Colour::Auto;
};
int showAddress(ShowOptions const& options, Output& output);
int showUri(ShowOptions const& options, Output& output);
int showLinks(ShowOptions const& options, Output& output);
int showHost(ShowOptions const& options, Output& output);
int showIp(ShowOptions const& options, Output& output);

struct EncodeOptions {
    std::string form;        ///< "qp", "base64" or "scramble"
    std::string file = "-";  ///< "-": standard input
    unsigned int seed = 90;  ///< of "scramble" only
};
int encode(EncodeOptions const& options, Output& output);
int decode(EncodeOptions const& options, Output& output);

struct Md5Options {
    std::vector<std::string> files;  ///< "-", or none: standard input
};
int md5(Md5Options const& options, Output& output);

struct LinesOptions {
    std::string from;
    std::string to;  ///< made or emptied; not the same file
};
int dos2unix(LinesOptions const& options, Output& output);
int unix2dos(LinesOptions const& options, Output& output);

struct ProcessOptions {
    std::string name;  ///< show processes of this name only; empty: all
    Colour colour = Colour::Auto;
};
int processes(ProcessOptions const& options, Output& output);

struct DnsOptions {
    std::string name;
    std::string reverse;  ///< the address to look up instead of a name
    std::string type;     ///< a name or a number; empty: A, or PTR for an address
    std::string recordClass = "IN";
    std::string server;        ///< an address; empty: the system's servers
    unsigned short port = 53;  ///< of that server
    bool json = false;
};
int dns(DnsOptions const& options, Output& output);

struct ServeOptions {
    unsigned short port = 29001;  ///< on 127.0.0.1; 0 for any that is free
    std::string policy;           ///< a file; empty: the built-in policy
    std::string lists;
};
int serve(ServeOptions const& options, Output& output);

struct IpcOptions {
    std::string daemon;     ///< "host:port", or a part of it
    unsigned int type = 0;  ///< of the request
};
int ping(IpcOptions const& options, Output& output);
int ipcSend(IpcOptions const& options, Output& output);

}  // namespace QuillmarkTool
