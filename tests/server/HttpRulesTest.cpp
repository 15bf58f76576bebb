// The HTTP layer's decisions that need no network, one table per rule
// family: what a head alone settles, Basic credentials, the CIMObject
// header, and log fields.
#include "HttpRules.h"

#include <gtest/gtest.h>

using namespace cimserver;

namespace {

RequestHead post(std::vector<std::pair<std::string, std::string>> extra, std::string method = "POST",
                 std::string version = "HTTP/1.1") {
    RequestHead h{std::move(method), "/cimom", std::move(version), {{"Host", "127.0.0.1"}}};
    for (auto &e : extra) h.headers.push_back(std::move(e));
    return h;
}

RequestHead scrape(std::vector<std::pair<std::string, std::string>> extra, std::string method = "GET",
                   std::string path = "/metrics") {
    RequestHead h = post(std::move(extra), std::move(method));
    h.url = std::move(path);
    return h;
}

}  // namespace

TEST(HttpRules, HeadChecks) {
    HeadLimits limits;
    limits.maxBody = 1000;
    limits.maxHeaders = 8;
    limits.maxHeaderBytes = 2048;
    struct Case {
        const char *name;
        RequestHead head;
        int status;  // 0: the body is to be read
        const char *cimError = nullptr;
    };
    const std::vector<Case> cases = {
        {"a length within the limit", post({{"Content-Length", "1000"}}), 0},
        {"chunked", post({{"Transfer-Encoding", "Chunked"}}), 0},
        {"identity coding", post({{"Content-Length", "5"}, {"Content-Encoding", "identity"}}), 0},
        {"the same length twice", post({{"Content-Length", "5"}, {"content-length", " 5"}}), 0},
        {"HTTP/1.0 without Host", RequestHead{"POST", "/", "HTTP/1.0", {{"Content-Length", "1"}}}, 0},
        {"a length past the limit", post({{"Content-Length", "1001"}}), 413, "request-not-valid"},
        {"a length past 64 bits", post({{"Content-Length", "99999999999999999999999"}}), 400, "request-not-valid"},
        {"a negative length", post({{"Content-Length", "-1"}}), 400, "request-not-valid"},
        {"two different lengths", post({{"Content-Length", "5"}, {"Content-Length", "6"}}), 400, "request-not-valid"},
        {"a length and chunked", post({{"Content-Length", "5"}, {"Transfer-Encoding", "chunked"}}), 400, "request-not-valid"},
        {"another transfer coding", post({{"Transfer-Encoding", "gzip, chunked"}}), 501, "request-not-valid"},
        {"no length", post({}), 411, "request-not-valid"},
        {"gzip", post({{"Content-Length", "5"}, {"Content-Encoding", "gzip"}}), 415, "request-not-valid"},
        {"deflate", post({{"Content-Length", "5"}, {"Content-Encoding", "deflate"}}), 415, "request-not-valid"},
        {"HTTP/1.1 without Host", RequestHead{"POST", "/", "HTTP/1.1", {{"Content-Length", "1"}}}, 400, "request-not-valid"},
        {"two Hosts", post({{"Host", "b"}, {"Content-Length", "1"}}), 400, "request-not-valid"},
        {"too many headers", post({{"A", "1"}, {"B", "1"}, {"C", "1"}, {"D", "1"}, {"E", "1"}, {"F", "1"}, {"G", "1"}, {"H", "1"}}),
         431, "request-not-valid"},
        {"headers too long", post({{"A", std::string(2040, 'a')}}), 431, "request-not-valid"},
        {"M-POST", post({{"Content-Length", "1"}}, "M-POST"), 501},
        {"GET", post({}, "GET"), 405},
        // The metrics: GET without a body.
        {"a scrape", scrape({}), 0},
        {"a scrape with an empty body", scrape({{"Content-Length", "0"}}), 0},
        {"a scrape with a body", scrape({{"Content-Length", "5"}}), 400},
        {"a scrape with a broken length", scrape({{"Content-Length", "x"}}), 400},
        {"a chunked scrape", scrape({{"Transfer-Encoding", "chunked"}}), 400},
        {"POST to the metrics", scrape({{"Content-Length", "1"}}, "POST"), 405},
        {"HEAD of the metrics", scrape({}, "HEAD"), 405},
        {"a scrape without Host", RequestHead{"GET", "/metrics", "HTTP/1.1", {}}, 400, "request-not-valid"},
        {"a scrape with too many headers", scrape({{"A", "1"}, {"B", "1"}, {"C", "1"}, {"D", "1"}, {"E", "1"}, {"F", "1"}, {"G", "1"}, {"H", "1"}}),
         431, "request-not-valid"},
        {"GET of a path below the metrics", scrape({}, "GET", "/metrics/"), 405},
        {"GET of the metrics in capitals", scrape({}, "GET", "/METRICS"), 405},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        auto refused = checkHead(c.head, limits, routeOf(c.head.url));
        ASSERT_EQ(refused ? refused->status : 0, c.status);
        if (!refused) continue;
        EXPECT_TRUE(refused->close);
        std::string cimError;
        for (const auto &[name, value] : refused->headers)
            if (name == "CIMError") cimError = value;
        EXPECT_EQ(cimError, c.cimError != nullptr ? c.cimError : "");
    }
}

TEST(HttpRules, BasicCredentials) {
    struct Case {
        const char *name;
        std::string header;
        std::optional<std::pair<std::string, std::string>> expect;
    };
    const std::vector<Case> cases = {
        {"user and password", "Basic YWRtaW46c2VjcmV0", std::make_pair("admin", "secret")},
        {"scheme in another case, spaces around", "basic   YWRtaW46c2VjcmV0  ", std::make_pair("admin", "secret")},
        {"a colon in the password", "Basic YTpiOmM=", std::make_pair("a", "b:c")},
        {"empty password", "Basic YTo=", std::make_pair("a", "")},
        {"no colon", "Basic YWRtaW4=", std::nullopt},
        {"a NUL in the password", "Basic YTpiAGM=", std::nullopt},
        {"a NUL in the name", "Basic YQBiOmM=", std::nullopt},
        {"not base64", "Basic !!!!", std::nullopt},
        {"length not a multiple of 4", "Basic YWRtaW46c2VjcmV", std::nullopt},
        {"another scheme", "Digest YWRtaW46c2VjcmV0", std::nullopt},
        {"too long", "Basic " + std::string(2000, 'A'), std::nullopt},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(basicCredentials(c.header), c.expect);
    }
}

TEST(HttpRules, ObjectHeaderIsDecodedOnce) {
    CimRequest intrinsic;
    intrinsic.nameSpace = "tovra/cimv2";
    CimRequest method;
    method.intrinsic = false;
    method.nameSpace = "tovra/cimv2";
    method.target.className = "Tovra_StoragePool";
    struct Case {
        const char *name;
        const CimRequest &request;
        const char *header;
        bool matches;
    };
    const std::vector<Case> cases = {
        {"namespace escaped", intrinsic, "tovra%2Fcimv2", true},
        {"namespace raw, other case", intrinsic, "TOVRA/cimv2", true},
        {"with a host", intrinsic, "//host/tovra/cimv2", true},
        {"escaped twice", intrinsic, "tovra%252Fcimv2", false},
        {"broken escape", intrinsic, "tovra%2", false},
        {"another namespace", intrinsic, "root%2Fcimv2", false},
        {"class of a method call", method, "tovra%2Fcimv2%3ATovra_StoragePool", true},
        {"instance of a method call, keys raw", method, "tovra/cimv2:Tovra_StoragePool.InstanceID=\"x\"", true},
        {"another class", method, "tovra/cimv2:Tovra_DiskDrive", false},
        {"no class", method, "tovra/cimv2", false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(objectHeaderMatches(c.header, c.request), c.matches);
    }
}

TEST(HttpRules, LogFieldsStayOnOneLine) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"admin", "admin"},
        {"", "-"},
        {"two words", "two\\x20words"},
        {"line\nbreak", "line\\x0abreak"},
        {"cr\rlf\r\n", "cr\\x0dlf\\x0d\\x0a"},
        {"esc\x1b[31m", "esc\\x1b[31m"},
        {"back\\slash", "back\\x5cslash"},
        {std::string("nul\0x", 5), "nul\\x00x"},
        {"del\x7f", "del\\x7f"},
        {"caf\xc3\xa9", "caf\xc3\xa9"},
    };
    for (const auto &[in, out] : cases) {
        SCOPED_TRACE(in);
        EXPECT_EQ(logField(in), out);
    }
}
