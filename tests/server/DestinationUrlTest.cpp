// Where a listener destination may point: the URL delivery uses, or the
// refusal and its reason, beside the networks an administrator allows.
#include "DestinationUrl.h"

#include <gtest/gtest.h>

using namespace cimserver;

TEST(DestinationUrl, LoopbackOrWhatTheAdministratorAllows) {
    const std::vector<std::string> allowed = {"10.1.0.0/16", "192.0.2.7", "fd00::/8", "listener.example"};
    struct Case {
        const char *url;
        const char *result;  // the URL delivery uses, or a part of the refusal
        CMPIrc rc = CMPI_RC_OK;
    };
    const std::vector<Case> cases = {
        {"http://127.0.0.1:5990", "http://127.0.0.1:5990/"},
        {"127.0.0.1:5990/cimlistener/x", "http://127.0.0.1:5990/cimlistener/x"},
        {"HTTP://127.9.9.9", "http://127.9.9.9:80/"},
        {"http://localhost:5990?a=1", "http://localhost:5990/?a=1"},
        {"http://[::1]:5990/", "http://[::1]:5990/"},
        {"http://10.1.200.3:5990", "http://10.1.200.3:5990/"},
        {"http://192.0.2.7:1", "http://192.0.2.7:1/"},
        {"http://[fd12::5]:5990", "http://[fd12::5]:5990/"},
        {"http://Listener.Example:5990", "http://Listener.Example:5990/"},
        {"http://10.2.0.1:5990", "10.2.0.1 is not a loopback address, nor one the server allows", CMPI_RC_ERR_INVALID_PARAMETER},
        {"http://192.0.2.8:5990", "192.0.2.8 is not a loopback", CMPI_RC_ERR_INVALID_PARAMETER},
        {"http://[fe80::1]:5990", "fe80::1 is not a loopback", CMPI_RC_ERR_INVALID_PARAMETER},
        {"http://other.example:5990", "other.example is not a loopback", CMPI_RC_ERR_INVALID_PARAMETER},
        {"http://[::ffff:127.0.0.1]:5990", "is not a loopback", CMPI_RC_ERR_INVALID_PARAMETER},
        {"https://127.0.0.1:5989", "scheme https is not supported; use http", CMPI_RC_ERR_NOT_SUPPORTED},
        {"file:///etc/passwd", "scheme file is not supported", CMPI_RC_ERR_NOT_SUPPORTED},
        {"http://user:pw@127.0.0.1:5990", "user information", CMPI_RC_ERR_INVALID_PARAMETER},
        {"http://127.0.0.1:0", "port 0 is not a number from 1 to 65535", CMPI_RC_ERR_INVALID_PARAMETER},
        {"http://127.0.0.1:", "the port is empty", CMPI_RC_ERR_INVALID_PARAMETER},
        {"http://127.0.0.1:59x0", "port 59x0", CMPI_RC_ERR_INVALID_PARAMETER},
        {"http://[::1:5990", "not closed", CMPI_RC_ERR_INVALID_PARAMETER},
        {"http://[127.0.0.1]:5990", "is not an IPv6 address", CMPI_RC_ERR_INVALID_PARAMETER},
        {"http:///path", "names no host", CMPI_RC_ERR_INVALID_PARAMETER},
        {"http://127.0.0.1:5990/#x", "fragment", CMPI_RC_ERR_INVALID_PARAMETER},
        {"http://127.0.0.1:5990/a b", "a space, a control character", CMPI_RC_ERR_INVALID_PARAMETER},
        {"", "1 to 2048 characters", CMPI_RC_ERR_INVALID_PARAMETER},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.url);
        auto r = destinationUrl(c.url, allowed);
        if (c.rc == CMPI_RC_OK) {
            ASSERT_TRUE(std::holds_alternative<std::string>(r)) << std::get<UrlRefusal>(r).message;
            EXPECT_EQ(std::get<std::string>(r), c.result);
            continue;
        }
        ASSERT_TRUE(std::holds_alternative<UrlRefusal>(r)) << std::get<std::string>(r);
        EXPECT_EQ(std::get<UrlRefusal>(r).rc, c.rc);
        EXPECT_NE(std::get<UrlRefusal>(r).message.find(c.result), std::string::npos) << std::get<UrlRefusal>(r).message;
    }
}
