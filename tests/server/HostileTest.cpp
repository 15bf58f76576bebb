// tovra-cimd against hostile clients on loopback. Each row is an attack run
// by a few attacker threads from 127.0.0.2 until the checks are done; while
// it runs a normal client on 127.0.0.1 must be answered within one second and
// the server's resident memory must stay under a bound, during the attack and
// after it. The server runs with short deadlines so that every row ends in
// well under a few seconds.
#include "ServerProcess.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <regex>
#include <thread>

using namespace servertest;
using namespace std::chrono_literals;

namespace {

// Whether `text` holds the parts of `expect`, regular expressions joined by
// "..." (any text, line ends included), in this order. Each part is searched
// from where the one before it ended: a single expression with "[\s\S]*"
// would recurse once per character of a long reply, deeper than a
// sanitizer's shadow stack allows.
bool holds(const std::string &text, const std::string &expect) {
    auto from = text.cbegin();
    for (size_t start = 0; start <= expect.size();) {
        const size_t end = std::min(expect.find("...", start), expect.size());
        std::smatch found;
        const auto flags = from == text.cbegin() ? std::regex_constants::match_default
                                                 : std::regex_constants::match_prev_avail;
        if (!std::regex_search(from, text.cend(), found, std::regex(expect.substr(start, end - start)), flags))
            return false;
        from = found[0].second;
        start = end + 3;
    }
    return true;
}

constexpr const char *kAttacker = "127.0.0.2";
// Resident memory the server may use while attacked (it needs about 20 MiB
// serving the default scenario). Sanitizer builds keep shadow memory and
// freed blocks in quarantine, so the bound is not checked there.
constexpr long kMemoryBoundKiB = 64 * 1024;
constexpr bool kSanitized = TOVRA_SANITIZED != 0;

const std::string kPoolNames = intrinsicBody(
    "EnumerateInstanceNames", R"(<IPARAMVALUE NAME="ClassName"><CLASSNAME NAME="Tovra_StoragePool"/></IPARAMVALUE>)");

// The head of a CIM request without its framing headers; the attack adds them.
std::string headOnly(const std::string &body, const std::vector<std::pair<std::string, std::string>> &headers = {}) {
    std::string r = cimPost(body, headers);
    return r.substr(0, r.find("\r\n\r\n") + 2);
}

std::string withoutHeader(std::string head, const std::string &name) {
    auto at = head.find(name + ": ");
    if (at != std::string::npos) head.erase(at, head.find("\r\n", at) + 2 - at);
    return head;
}

std::string chunked(const std::string &body, size_t chunk) {
    std::string out;
    for (size_t at = 0; at < body.size(); at += chunk) {
        std::string piece = body.substr(at, chunk);
        char size[16];
        std::snprintf(size, sizeof size, "%zx\r\n", piece.size());
        out += size + piece + "\r\n";
    }
    return out + "0\r\n\r\n";
}

std::string repeat(const std::string &s, size_t n) {
    std::string out;
    for (size_t i = 0; i < n; ++i) out += s;
    return out;
}

// One attempt of an attack; returns what the server sent back.
using Attempt = std::function<std::string(int port)>;

// Sends the bytes from the attacker's address and reads the reply.
Attempt sends(std::string bytes, std::chrono::milliseconds wait = 3000ms) {
    return [bytes = std::move(bytes), wait](int port) {
        Connection c(port, kAttacker);
        c.send(bytes);
        return c.response(wait);
    };
}

// Sends the head, then the rest one byte at a time every 100 ms (as long as
// the server listens, at most 50 bytes).
Attempt trickles(std::string head, std::string rest) {
    return [head = std::move(head), rest = std::move(rest)](int port) {
        Connection c(port, kAttacker);
        c.send(head);
        for (size_t i = 0; i < rest.size() && i < 50; ++i) {
            std::string reply = c.response(100ms);
            if (!reply.empty()) return reply;
            if (!c.send(rest.substr(i, 1))) break;
        }
        return c.response(3000ms);
    };
}

struct Attack {
    const char *name;
    Attempt attempt;
    const char *expect;  // regular expression over the first reply an attacker got
    int attackers = 2;
};

void runAttacks(ServerProcess &server, const std::vector<Attack> &attacks) {
    const std::string normal = cimPost(kPoolNames);
    for (const Attack &a : attacks) {
        SCOPED_TRACE(a.name);
        std::atomic<bool> done{false};
        std::vector<std::string> first(static_cast<size_t>(a.attackers));
        std::vector<std::thread> attackers;
        for (size_t i = 0; i < first.size(); ++i)
            attackers.emplace_back([&, i] {
                for (int round = 0; round < 20 && (round == 0 || !done.load()); ++round) {
                    std::string reply = a.attempt(server.port());
                    if (round == 0) first[i] = reply;
                }
            });
        std::this_thread::sleep_for(200ms);  // the attack under way
        std::string answer = rawExchange(server.port(), normal, 1000);
        EXPECT_NE(answer.find("Raid Set # 001"), std::string::npos) << "normal client: " << answer.substr(0, 300);
        long during = server.residentKiB();
        done = true;
        for (std::thread &t : attackers) t.join();
        long after = server.residentKiB();
        for (const std::string &reply : first)
            EXPECT_TRUE(holds(reply, a.expect)) << reply.substr(0, 600);
        if (!kSanitized) {
            EXPECT_LT(during, kMemoryBoundKiB);
            EXPECT_LT(after, kMemoryBoundKiB);
        }
        ASSERT_GT(after, 0) << "the server died: " << server.log();
    }
}

const std::vector<std::string> kShortDeadlines = {
    "--users", "", "--threads", "2", "--request-timeout", "1", "--idle-timeout", "2", "--max-body", "65536",
    "--max-connections", "64", "--max-connections-per-address", "16", "--shutdown-timeout", "1"};

std::vector<std::string> shortDeadlines() {
    std::vector<std::string> args = kShortDeadlines;
    args[1] = usersFile();
    return args;
}

}  // namespace

// Unbounded memory before authentication, and the statuses of refused heads.
TEST(Hostile, BodiesAndHeadsAreBounded) {
    ServerProcess server(shortDeadlines());
    const std::string big(1 << 20, 'x');
    const std::string head = headOnly(kPoolNames);
    const std::string noLength = withoutHeader(head, "Content-Length");
    runAttacks(server, {
        {"chunked body past the limit", sends(noLength + "Transfer-Encoding: chunked\r\n\r\n" + chunked(big, 16384)),
         "^HTTP/1.1 413 ...CIMError: request-not-valid"},
        {"body without a length", sends(noLength + "\r\n" + big), "^HTTP/1.1 411 ...CIMError: request-not-valid"},
        {"gzip body", sends(withoutHeader(head, "Content-Length") + "Content-Encoding: gzip\r\nContent-Length: 20\r\n\r\n" +
                            std::string("\x1f\x8b\x08\0\0\0\0\0\0\x03\x01\0\0\xff\xff\0\0\0\0\0", 20)),
         "^HTTP/1.1 415 ...CIMError: request-not-valid"},
        {"brotli body", sends(noLength + "Content-Encoding: br\r\nContent-Length: 4\r\n\r\nabcd"),
         "^HTTP/1.1 415 ...CIMError: request-not-valid"},
        {"more headers than allowed", sends(head + repeat("X-A: b\r\n", 100) + "\r\n" + kPoolNames),
         "^HTTP/1.1 431 ...CIMError: request-not-valid"},
        {"thousands of headers", sends(head + repeat("X-A: b\r\n", 5000) + "\r\n" + kPoolNames), "^HTTP/1.1 431 "},
        {"a header just past the limit", sends(head + "X-Pad: " + std::string(20000, 'p') + "\r\n\r\n" + kPoolNames),
         "^HTTP/1.1 431 ...CIMError: request-not-valid"},
        {"a header line of 1 MiB", sends(head + "X-Pad: " + big + "\r\n\r\n"), "^HTTP/1.1 431 |^$"},
        {"Content-Length -1", sends(noLength + "Content-Length: -1\r\n\r\n"), "^HTTP/1.1 400 "},
        {"Content-Length past the limit", sends(noLength + "Content-Length: 1000000000000\r\n\r\n"),
         "^HTTP/1.1 413 ...CIMError: request-not-valid"},
        {"two different Content-Lengths", sends(head + "Content-Length: 3\r\n\r\n" + kPoolNames),
         "^HTTP/1.1 400 ...CIMError: request-not-valid"},
        {"length and chunked together", sends(head + "Transfer-Encoding: chunked\r\n\r\n" + chunked(kPoolNames, 100)),
         "^HTTP/1.1 400 ...CIMError: request-not-valid"},
        {"a chunk size that is not hex", sends(noLength + "Transfer-Encoding: chunked\r\n\r\nzz\r\nabc\r\n0\r\n\r\n"),
         "^HTTP/1.1 400 "},
        {"HTTP/1.1 without Host", sends(withoutHeader(cimPost(kPoolNames), "Host")),
         "^HTTP/1.1 400 ...CIMError: request-not-valid"},
    });
    EXPECT_EQ(server.stop(), 0) << server.log();
}

// Slow and idle connections, keep-alive, connection limits, pipelining.
TEST(Hostile, ConnectionsCannotHoldTheServer) {
    ServerProcess server(shortDeadlines());
    const std::string head = headOnly(kPoolNames);
    // GetClass requests, so that their log lines can be counted; made here,
    // once, for the attacker threads to send.
    auto numbered = [](const std::string &id, const char *connection) {
        std::string body = intrinsicBody(
            "GetClass", R"(<IPARAMVALUE NAME="ClassName"><CLASSNAME NAME="Tovra_StoragePool"/></IPARAMVALUE>)");
        const std::string messageId = "ID=\"7\"";
        body.replace(body.find(messageId), messageId.size(), "ID=\"" + id + "\"");
        return cimPost(body, {{"Connection", connection}});
    };
    const std::string pipelined = numbered("1", "keep-alive") + numbered("2", "keep-alive") + numbered("3", "close");
    runAttacks(server, {
        {"a head one byte at a time", trickles("POST /cimom HTTP/1.1\r\n", head.substr(22) + "\r\n" + kPoolNames),
         "^HTTP/1.1 408 ", 8},
        {"a body one byte at a time", trickles(head + "\r\n", kPoolNames), "^HTTP/1.1 408 ", 8},
        {"idle connections", sends("", 3000ms), "^HTTP/1.1 (408|503) ", 40},
        {"keep-alive connections holding on", [&](int port) {
             Connection c(port, kAttacker);
             c.send(cimPost(kPoolNames, {{"Connection", "keep-alive"}}));
             std::string reply = c.response(3000ms);
             c.rest(1500ms);  // held open until the server ends it
             return reply;
         }, "^HTTP/1.1 200 ...Raid Set # 001", 6},
        {"more connections than one address may open", [](int port) {
             std::vector<std::unique_ptr<Connection>> held;
             for (int i = 0; i < 20; ++i) held.push_back(std::make_unique<Connection>(port, kAttacker));
             return held.back()->response(3000ms);
         }, "^HTTP/1.1 503 ", 1},
        {"three pipelined requests", [&](int port) {
             Connection c(port, kAttacker);
             c.send(pipelined);
             return c.rest(3000ms);
         }, R"(^HTTP/1.1 200 ...<MESSAGE ID="1"...HTTP/1.1 200 ...<MESSAGE ID="2"...HTTP/1.1 200 ...<MESSAGE ID="3")"},
    });
    EXPECT_EQ(server.stop(), 0) << server.log();
    // One log line for each pipelined request.
    const std::string log = server.log();
    const std::regex getClass("GetClass Tovra_StoragePool http=200");
    std::ptrdiff_t lines = std::distance(std::sregex_iterator(log.begin(), log.end(), getClass), std::sregex_iterator());
    EXPECT_GT(lines, 0);
    EXPECT_EQ(lines % 3, 0) << log;
}

// CPU and memory per request stay linear in its size: attributes are counted
// before the XML parser compares them.
TEST(Hostile, XmlCostIsBounded) {
    std::vector<std::string> args = shortDeadlines();
    args[9] = std::to_string(1 << 20);  // --max-body
    ServerProcess server(args);
    auto attributes = [](size_t n) {
        std::string many;
        for (size_t i = 0; i < n; ++i) many += " a" + std::to_string(i) + "=''";
        return std::regex_replace(kPoolNames, std::regex("<CLASSNAME NAME="), "<CLASSNAME" + many + " NAME=");
    };
    auto spread = [](size_t elements) {
        return std::regex_replace(kPoolNames, std::regex("<CLASSNAME NAME=\"Tovra_StoragePool\"/>"),
                                  "<VALUE.ARRAY>" + repeat("<VALUE a='' b='' c='' d='' e=''/>", elements) + "</VALUE.ARRAY>");
    };
    runAttacks(server, {
        {"100000 attributes on one element", sends(cimPost(attributes(100000))), "^HTTP/1.1 400 ...CIMError: request-not-valid"},
        {"attributes spread over many elements", sends(cimPost(spread(15000))), "^HTTP/1.1 400 ...CIMError: request-not-valid"},
        {"deep nesting", sends(cimPost(std::regex_replace(kPoolNames, std::regex("<CLASSNAME NAME=\"Tovra_StoragePool\"/>"),
                                                          repeat("<VALUE.ARRAY>", 5000) + repeat("</VALUE.ARRAY>", 5000)))),
         "^HTTP/1.1 400 ...CIMError: request-not-valid"},
    });
    EXPECT_EQ(server.stop(), 0) << server.log();
}

// Authentication and the log: refusals look alike, and log fields cannot
// forge lines.
TEST(Hostile, CredentialsAndLogLines) {
    ServerProcess server(shortDeadlines());
    auto basic = [](const std::string &userPassword) {
        static const char *digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        std::string out;
        for (size_t i = 0; i < userPassword.size(); i += 3) {
            unsigned v = static_cast<unsigned char>(userPassword[i]) << 16;
            if (i + 1 < userPassword.size()) v |= static_cast<unsigned char>(userPassword[i + 1]) << 8;
            if (i + 2 < userPassword.size()) v |= static_cast<unsigned char>(userPassword[i + 2]);
            out += digits[(v >> 18) & 63];
            out += digits[(v >> 12) & 63];
            out += i + 1 < userPassword.size() ? digits[(v >> 6) & 63] : '=';
            out += i + 2 < userPassword.size() ? digits[v & 63] : '=';
        }
        return "Basic " + out;
    };
    runAttacks(server, {
        {"a user that does not exist", sends(cimPost(kPoolNames, {{"Authorization", basic("nobody:secret")}})), "^HTTP/1.1 401 "},
        {"a NUL in the password", sends(cimPost(kPoolNames, {{"Authorization", basic(std::string("admin:secret\0x", 14))}})),
         "^HTTP/1.1 401 "},
        {"a user name that writes a log line", sends(cimPost(kPoolNames, {{"Authorization", basic("evil\nFORGED 1:x")}})),
         "^HTTP/1.1 401 "},
        {"an operation name that writes a log line",
         sends(cimPost(std::regex_replace(kPoolNames, std::regex("NAME=\"EnumerateInstanceNames\""),
                                          "NAME=\"Enum&#10;FORGED 2\""))),
         "^HTTP/1.1 400 ...CIMError: header-mismatch"},
        {"CIMObject escaped twice", sends(cimPost(kPoolNames, {{"CIMObject", "tovra%252Fcimv2"}})),
         "^HTTP/1.1 400 ...CIMError: header-mismatch"},
        {"a header with an empty value", sends(cimPost(kPoolNames, {{"CIMBatch", ""}})),
         "^HTTP/1.1 501 ...CIMError: multiple-requests-unsupported"},
    });
    EXPECT_EQ(server.stop(), 0) << server.log();
    const std::string log = server.log();
    EXPECT_EQ(log.find("\nFORGED"), std::string::npos) << log;
    EXPECT_NE(log.find(" evil\\x0aFORGED\\x201 POST "), std::string::npos) << log;
    EXPECT_NE(log.find("Enum\\x0aFORGED\\x202"), std::string::npos) << log;
}

// SIGTERM ends the server within its shutdown deadline with status 0, while
// clients trickle requests and an operation is in flight.
TEST(Hostile, StopsOnSigtermWhateverClientsDo) {
    std::vector<std::string> args = shortDeadlines();
    args[5] = "30";  // --request-timeout and --idle-timeout: slow clients are not cut off first
    args[7] = "30";
    ServerProcess server(args);
    const std::string head = headOnly(kPoolNames);
    std::vector<std::unique_ptr<Connection>> slow;
    for (int i = 0; i < 4; ++i) {
        slow.push_back(std::make_unique<Connection>(server.port(), kAttacker));
        slow.back()->send(head.substr(0, 30));
    }
    Connection inFlight(server.port());
    inFlight.send(cimPost(kPoolNames, {{"Connection", "keep-alive"}}));
    EXPECT_EQ(server.stop(3000ms), 0) << server.log();
    for (auto &c : slow) EXPECT_EQ(c->rest(1000ms).find("HTTP/1.1 200"), std::string::npos);
}

// A second server on a port in use does not start.
TEST(Hostile, SecondServerOnABusyPortFails) {
    ServerProcess first({"--no-auth"});
    try {
        ServerProcess second({"--no-auth", "--port", std::to_string(first.port())});
        ADD_FAILURE() << "a second server listens on port " << second.port();
    } catch (const std::runtime_error &e) {
        EXPECT_NE(std::string(e.what()).find("address in use"), std::string::npos) << e.what();
    }
    EXPECT_EQ(first.stop(), 0) << first.log();
}
