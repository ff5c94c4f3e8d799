#include "tests/net/RealDnsServer.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <resolv.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "include2/IPAddress"
#include "include2/Resolver"
#include "tests/net/WireMessage.h"

namespace QuillmarkTest {

namespace {

using Clock = std::chrono::steady_clock;

constexpr char const* program = "/usr/sbin/nsd";
constexpr char const* addresses[] = {"127.0.0.1", "::1"};
constexpr std::chrono::seconds patience{60};

// The owner "all" has a record of every type that can stand beside others and is there to be asked for: all but
// NSEC3, which only proves that there is no other. Types that the server knows no text for are bytes.
constexpr std::string_view forwardZone = R"(
$ORIGIN quill.example.
$TTL 3600
@           SOA   ns1 admin.people 2024051701 7200 900 1209600 300
            NS    ns1
            NS    ns2
            MX    10 mx1
ns1         A     127.0.0.1
            AAAA  ::1
ns2    60   A     192.0.2.53

host        A     192.0.2.1
            A     192.0.2.2
            A     192.0.2.3
            AAAA  2001:db8::1
            AAAA  2001:db8::ffff:1
six    0    AAAA  2001:db8:0:0:1::6
old    2147483647 A 255.255.255.255

www         CNAME web
web    120  CNAME host
away        CNAME www.elsewhere.test.
round       CNAME about
about       CNAME round
*.wild      TXT   "any"
tree        DNAME wood
leaf.wood   A     192.0.2.9
sub         NS    ns.sub
ns.sub      A     192.0.2.54
dot\.ted    A     192.0.2.10
aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa.bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb.ccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccc.dddddddddddddddddddddddddddddddddddddddddddddd A 192.0.2.11

mail        MX    20 backup
            MX    10 second
            MX    10 First
            MX    5  best.elsewhere.test.
            MX    30 backup
nomail      MX    0 .

spf         TXT   "v=spf1" " -all"
long        TXT   "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcde"
empty       TXT   "" "" "x" ""
raw         TXT   "\000\001\"\\\255"
large       TXT ( "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcde"
                  "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcde" )

_sip._udp   SRV   1 2 5060 host
            SRV   65535 65535 65535 .
odd         TYPE65400 \# 5 00FF1022AB
nothing     TYPE65400 \# 0

all         A     192.0.2.20
            AAAA  2001:db8::20
            PTR   host
            MX    1 mx1
            TXT   "all"
            SPF   "v=spf1 -all"
            MD    md.test.
            MF    mf.test.
            MB    mb.test.
            MG    mg.test.
            MR    mr.test.
            NULL  \# 3 010203
            WKS   \# 9 c00002010600000040 ; a bare system has no names of protocols
            HINFO "cpu" "os"
            MINFO request.test. error.elsewhere.
            RP    mbox.test. txt.test.
            AFSDB 1 afs.test.
            X25   "311061700956"
            ISDN  "150862028003217" "004"
            RT    10 rt.test.
            NSAP  0x47000580ffff0000
            TYPE23 \# 11 046E736170047465737400
            SIG   A 8 3 3600 20300101000000 20200101000000 1 test. AAECAw==
            KEY   256 3 8 AAECAw==
            PX    10 px1.test. px2.test.
            TYPE27 \# 6 013101320133
            LOC   51 30 12.748 N 0 7 39.612 W 0.00m
            NXT   next.test. A
            TYPE31 \# 2 0102
            TYPE32 \# 2 0304
            SRV   1 2 3 srv.test.
            TYPE34 \# 3 013132
            NAPTR 100 10 "u" "sip+E2U" "!^.*$!sip:x@test!" .
            KX    1 kx.test.
            CERT  1 2 3 AAECAw==
            TYPE38 \# 17 0020010DB8000000000000000000000001
            DNAME dname.test.
            TYPE40 \# 3 010203
            APL   1:192.0.2.0/24 !2:2001:db8::/32
            DS    1 8 2 e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855
            SSHFP 1 1 da39a3ee5e6b4b0d3255bfef95601890afd80709
            IPSECKEY 10 1 2 192.0.2.38 AQNRU3mG7TVTO2BkR47usntb102uFJtugbo6BSGvgqt4AQ==
            RRSIG A 8 3 3600 20300101000000 20200101000000 1 test. AAECAw==
            NSEC  next.test. A
            DNSKEY 256 3 8 AAECAw==
            DHCID AAIBY2/AuCccgoJbsaxcQc9TUapptP69lOjxfNuVAA2kjEA=
            NSEC3PARAM 1 0 12 aabbccdd
            TYPE55 \# 5 0001000000
            TLSA  3 1 1 0102
            CAA   0 issue "ca.test"
            TYPE32768 \# 5 0001080201
            TYPE32769 \# 6 000108020102
)";

constexpr std::string_view reverseZone4 = R"(
$ORIGIN 2.0.192.in-addr.arpa.
$TTL 3600
@           SOA   ns1.quill.example. admin.quill.example. 1 2 3 4 5
            NS    ns1.quill.example.
1           PTR   host.quill.example.
2           PTR   nodomain.
            PTR   Other.Quill.Example.
3           CNAME 3.range
3.range     PTR   ranged.quill.example.
)";

constexpr std::string_view reverseZone6 = R"(
$ORIGIN 8.b.d.0.1.0.0.2.ip6.arpa.
$TTL 3600
@           SOA   ns1.quill.example. admin.quill.example. 1 2 3 4 5
            NS    ns1.quill.example.
1.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0 PTR host.quill.example.
)";

/// As unprivileged and as private as it can be: everything that it writes stands in its directory.
std::string configuration(std::string const& directory, int port) {
    std::string text = "server:\n";
    for (char const* address : addresses)
        text += "  ip-address: " + std::string(address) + "@" + std::to_string(port) + "\n";
    std::string const quoted = "\"" + directory;
    text += "  username: \"\"\n  chroot: \"\"\n  pidfile: \"\"\n  database: \"\"\n  xfrdfile: \"\"\n";
    text += "  zonesdir: " + quoted + "\"\n  xfrdir: " + quoted + "\"\n";
    text += "  zonelistfile: " + quoted + "/zone.list\"\n  logfile: " + quoted + "/log\"\n";
    text += "  cookie-secret-file: " + quoted + "/cookie\"\n";
    text += "  server-count: 1\n  rrl-ratelimit: 0\n  rrl-whitelist-ratelimit: 0\n  zonefiles-write: 0\n";
    text += "  minimal-responses: no\n  refuse-any: no\n  hide-version: no\n";
    text += "  version: \"a name server of the tests\"\n";
    text += "remote-control:\n  control-enable: no\n";
    for (char const* zone : {"quill.example", "2.0.192.in-addr.arpa", "8.b.d.0.1.0.0.2.ip6.arpa"})
        text += "zone:\n  name: " + std::string(zone) + "\n  zonefile: " + zone + "\n";
    return text;
}

/// A socket that is closed with the object.
class OpenSocket {
public:
    OpenSocket(int family, int type) : m_socket(::socket(family, type | SOCK_CLOEXEC, 0)) {
        if (m_socket < 0) throw std::runtime_error("no socket");
    }
    ~OpenSocket() { ::close(m_socket); }
    OpenSocket(OpenSocket const&) = delete;
    OpenSocket& operator=(OpenSocket const&) = delete;
    int number() const { return m_socket; }

private:
    int m_socket;
};

union Endpoint {
    sockaddr any;
    sockaddr_in v4;
    sockaddr_in6 v6;
};

Endpoint endpointOf(std::string const& address, int port) {
    Quillmark::IPAddress const parsed(address);
    Endpoint endpoint{};
    endpoint.any.sa_family = parsed.isV4() ? AF_INET : AF_INET6;
    endpoint.v4.sin_port = htons(static_cast<in_port_t>(port));  // at the same place in both families
    if (parsed.isV4())
        endpoint.v4.sin_addr = parsed.asInAddr();
    else
        endpoint.v6.sin6_addr = parsed.asIn6Addr();
    return endpoint;
}

/// A port that nobody has on either address, over UDP and over TCP; another may take it any time.
int freePort() {
    for (;;) {
        OpenSocket const first(AF_INET, SOCK_DGRAM);
        Endpoint endpoint = endpointOf(addresses[0], 0);
        socklen_t size = sizeof endpoint;
        if (::bind(first.number(), &endpoint.any, sizeof endpoint.v4) != 0 ||
            ::getsockname(first.number(), &endpoint.any, &size) != 0)
            throw std::runtime_error("no loopback socket");
        int const port = ntohs(endpoint.v4.sin_port);
        auto const isFree = [port](char const* address, int type) {
            Endpoint const wanted = endpointOf(address, port);
            OpenSocket const socket(wanted.any.sa_family, type);
            return ::bind(socket.number(), &wanted.any, sizeof wanted.v6) == 0;
        };
        if (isFree(addresses[0], SOCK_STREAM) && isFree(addresses[1], SOCK_DGRAM) &&
            isFree(addresses[1], SOCK_STREAM))
            return port;
    }
}

/// The process that becomes the server. Does not come back.
[[noreturn]] void become(char const* configurationFile, int output, int alive, pid_t parent) {
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent) ::_exit(127);
    ::setpgid(0, 0);  // nobody's Ctrl-C
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    int const input = ::open("/dev/null", O_RDONLY);
    ::dup2(input, 0);
    ::dup2(output, 1);
    ::dup2(output, 2);
    ::fcntl(alive, F_SETFD, 0);
    ::execl(program, program, "-d", "-c", configurationFile, nullptr);
    ::_exit(127);
}

}  // namespace

RealDnsServer::RealDnsServer() {
    m_directory.write("quill.example", forwardZone);
    m_directory.write("2.0.192.in-addr.arpa", reverseZone4);
    m_directory.write("8.b.d.0.1.0.0.2.ip6.arpa", reverseZone6);
    Clock::time_point const deadline = Clock::now() + patience;
    try {
        // Where somebody else was quicker to take the port, the server ends at once; another port is as good.
        for (int attempts = 5; attempts > 0; --attempts) {
            start();
            while (Clock::now() < deadline && !hasEnded())
                if (isReady()) return;
            stop();
        }
    } catch (...) {
        stop();
        throw;
    }
    std::string said = program;
    said.append(" does not answer: ").append(readFile(m_directory.file("output")));
    throw std::runtime_error(said.append(readFile(m_directory.file("log"))));
}

RealDnsServer::~RealDnsServer() {
    stop();
}

void RealDnsServer::start() {
    m_port = freePort();
    std::string const configurationFile =
        m_directory.write("nsd.conf", configuration(m_directory.path(), m_port));
    std::array<int, 2> alive{};
    int const output = ::open(m_directory.file("output").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (output < 0 || ::pipe2(alive.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    pid_t const parent = ::getpid();
    m_process = ::fork();
    if (m_process == 0) become(configurationFile.c_str(), output, alive[1], parent);
    ::close(output);
    ::close(alive[1]);
    m_alive = alive[0];
    if (m_process < 0) throw std::runtime_error("no process");
}

bool RealDnsServer::isReady() const {
    return answers(addresses[0]) && answers(addresses[1]);
}

/// Asks for the last zone, and waits a moment for the answer or for the server's end.
bool RealDnsServer::answers(std::string const& address) const {
    constexpr int moment = 20;  // milliseconds, after which the question is asked again
    Endpoint const endpoint = endpointOf(address, m_port);
    OpenSocket const socket(endpoint.any.sa_family, SOCK_DGRAM);
    std::string const query = header({1}, 0x0000) + question(name("8.b.d.0.1.0.0.2.ip6.arpa"), 6);
    if (::connect(socket.number(), &endpoint.any, sizeof endpoint) != 0) return false;
    ::send(socket.number(), query.data(), query.size(), 0);
    pollfd waits[] = {{socket.number(), POLLIN, 0}, {m_alive, POLLIN, 0}};
    ::poll(waits, 2, moment);
    std::array<unsigned char, 512> reply{};
    ssize_t const count = ::recv(socket.number(), reply.data(), reply.size(), MSG_DONTWAIT);
    if (count > 12) return (reply[3] & 0x0f) == 0;
    if (count < 0 && errno == ECONNREFUSED) ::poll(&waits[1], 1, moment);  // nobody listens yet
    return false;
}

bool RealDnsServer::hasEnded() const {
    pollfd wait{m_alive, POLLIN, 0};
    return ::poll(&wait, 1, 0) > 0;
}

/// The server ends its processes itself; those that do not go are made to.
void RealDnsServer::stop() noexcept {
    if (m_process > 0) {
        ::kill(m_process, SIGTERM);
        pollfd wait{m_alive, POLLIN, 0};
        if (::poll(&wait, 1, 10'000) == 0) ::kill(-m_process, SIGKILL);
        while (::waitpid(m_process, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    m_process = -1;
    if (m_alive >= 0) ::close(std::exchange(m_alive, -1));
}

void RealDnsServer::serveThisThread(std::string const& address) const {
    Quillmark::Resolver::instance()->server(Quillmark::IPAddress(address), static_cast<unsigned int>(m_port));
    _res.retrans = 10;
    _res.retry = 1;
}

}  // namespace QuillmarkTest
