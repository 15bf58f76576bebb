// The listener's side of the export protocol with raw requests: every answer
// carries "CIMExport: MethodResponse", refusals carry their CIMError, and
// only a well-formed ExportIndication is printed.
#include "AlertSupport.h"

#include <gtest/gtest.h>

#include <regex>

using namespace servertest;

namespace {

std::string exportBody(const std::string &call) {
    return R"(<?xml version="1.0" encoding="utf-8" ?><CIM CIMVERSION="2.0" DTDVERSION="2.0"><MESSAGE ID="42" PROTOCOLVERSION="1.0"><SIMPLEEXPREQ>)" +
           call + "</SIMPLEEXPREQ></MESSAGE></CIM>";
}

const std::string kAlert =
    R"(<INSTANCE CLASSNAME="Tovra_AlertIndication"><PROPERTY NAME="PerceivedSeverity" TYPE="uint16"><VALUE>6</VALUE></PROPERTY>)"
    R"(<PROPERTY NAME="ProbableCause" TYPE="uint16"><VALUE>86</VALUE></PROPERTY><PROPERTY NAME="Message" TYPE="string"><VALUE>Disk 3 failed&#10;now</VALUE></PROPERTY>)"
    R"(<PROPERTY NAME="OtherSeverity" TYPE="string"></PROPERTY>)"
    R"(<PROPERTY NAME="SourceInstance" TYPE="string" EMBEDDEDOBJECT="instance"><VALUE>&lt;INSTANCE CLASSNAME="Tovra_DiskDrive"&gt;&lt;PROPERTY NAME="DeviceID" TYPE="string"&gt;&lt;VALUE&gt;Disk 3&lt;/VALUE&gt;&lt;/PROPERTY&gt;&lt;/INSTANCE&gt;</VALUE></PROPERTY>)"
    R"(<PROPERTY NAME="IndicationTime" TYPE="datetime"><VALUE>20261124093551.000000+000</VALUE></PROPERTY></INSTANCE>)";

std::string exportIndication(const std::string &params, const char *method = "ExportIndication") {
    return exportBody(std::string(R"(<EXPMETHODCALL NAME=")") + method + R"(">)" + params + "</EXPMETHODCALL>");
}

std::string post(const std::string &body, std::vector<std::pair<std::string, std::string>> headers = {}) {
    std::vector<std::pair<std::string, std::string>> h = {{"Host", "127.0.0.1"},
                                                          {"Content-Type", "application/xml; charset=\"utf-8\""},
                                                          {"CIMProtocolVersion", "1.0"},
                                                          {"CIMExport", "MethodRequest"},
                                                          {"CIMExportMethod", "ExportIndication"},
                                                          {"Content-Length", std::to_string(body.size())},
                                                          {"Connection", "close"}};
    for (const auto &[name, value] : headers) {
        bool replaced = false;
        for (auto &existing : h)
            if (existing.first == name) existing.second = value, replaced = true;
        if (!replaced) h.emplace_back(name, value);
    }
    std::string req = "POST / HTTP/1.1\r\n";
    for (const auto &[name, value] : h)
        if (value != "<none>") req += name + ": " + value + "\r\n";
    return req + "\r\n" + body;
}

std::regex pattern(const std::string &text) {
    return std::regex(std::regex_replace(text, std::regex(R"(\.\.\.)"), R"([\s\S]*)"));
}

}  // namespace

TEST(Listen, AnswersTheExportProtocol) {
    struct Case {
        const char *name;
        std::string request;
        const char *expect;  // over the whole answer; "..." is any text
    };
    const std::string param = R"(<EXPPARAMVALUE NAME="NewIndication">)" + kAlert + "</EXPPARAMVALUE>";
    const std::string good = exportIndication(param);
    const std::vector<Case> cases = {
        {"an indication", post(good),
         R"(^HTTP/1.1 200 OK\r\n...CIMExport: MethodResponse...<MESSAGE ID="42" PROTOCOLVERSION="1.0"><SIMPLEEXPRSP><EXPMETHODRESPONSE NAME="ExportIndication"/>)"},
        {"GET", "GET / HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n", R"(^HTTP/1.1 405 ...CIMExport: MethodResponse)"},
        {"no CIMExport", post(good, {{"CIMExport", "<none>"}}), R"(^HTTP/1.1 400 ...CIMError: unsupported-operation)"},
        {"an operation request", post(good, {{"CIMExport", "MethodCall"}}), R"(^HTTP/1.1 400 ...CIMError: unsupported-operation)"},
        {"no CIMExportMethod", post(good, {{"CIMExportMethod", "<none>"}}), R"(^HTTP/1.1 400 ...CIMError: header-mismatch)"},
        {"another CIMExportMethod", post(good, {{"CIMExportMethod", "Other"}}), R"(^HTTP/1.1 400 ...CIMError: header-mismatch)"},
        {"a batch", post(good, {{"CIMExportBatch", ""}}), R"(^HTTP/1.1 501 ...CIMError: multiple-requests-unsupported)"},
        {"protocol version 2", post(good, {{"CIMProtocolVersion", "2.0"}}), R"(^HTTP/1.1 501 ...CIMError: unsupported-protocol-version)"},
        {"not XML", post("<CIM"), R"(^HTTP/1.1 400 ...CIMError: request-not-well-formed)"},
        {"not an export", post(exportBody("<EXPMETHODCALL/>")), R"(^HTTP/1.1 400 ...CIMError: request-not-valid)"},
        {"a property of no type", post(exportIndication(R"(<EXPPARAMVALUE NAME="NewIndication"><INSTANCE CLASSNAME="X"><PROPERTY NAME="P"><VALUE>1</VALUE></PROPERTY></INSTANCE></EXPPARAMVALUE>)")),
         R"(^HTTP/1.1 400 ...CIMError: request-not-valid)"},
        {"a value not of its type", post(exportIndication(R"(<EXPPARAMVALUE NAME="NewIndication"><INSTANCE CLASSNAME="X"><PROPERTY NAME="P" TYPE="uint8"><VALUE>300</VALUE></PROPERTY></INSTANCE></EXPPARAMVALUE>)")),
         R"(^HTTP/1.1 400 ...CIMError: request-not-valid)"},
        {"another method", post(exportIndication(param, "ExportOther"), {{"CIMExportMethod", "ExportOther"}}),
         R"(^HTTP/1.1 200 ...<ERROR CODE="7" DESCRIPTION="ExportOther is not supported"/>)"},
        {"no NewIndication", post(exportIndication("")), R"(^HTTP/1.1 200 ...<ERROR CODE="4" DESCRIPTION="NewIndication must be the one INSTANCE"/>)"},
        {"a body over the limit", post(std::string(5000, ' ')), R"(^HTTP/1.1 413 ...CIMError: request-not-valid)"},
    };
    ListenerProcess listener({"--max-body", "4096"});
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        std::string reply = rawExchange(listener.port(), c.request);
        EXPECT_TRUE(std::regex_search(reply, pattern(c.expect))) << reply;
    }
    // The one good request printed the alert, with its codes named and the
    // embedded disk shown by its class and ID; control characters escaped.
    EXPECT_EQ(listener.output(),
              "20261124093551.000000+000 Tovra_AlertIndication from 127.0.0.1\n"
              "  PerceivedSeverity = 6 (Critical)\n"
              "  ProbableCause = 86 (Disk Failure)\n"
              "  Message = Disk 3 failed\\x0Anow\n"
              "  SourceInstance = Tovra_DiskDrive DeviceID=Disk 3\n");
}

TEST(Listen, JsonIsOneDocumentPerLineAndRedeliveriesPrintOnce) {
    ListenerProcess listener({"--json", "--count", "3"});
    auto indication = [](int sequence) {
        return exportIndication(R"(<EXPPARAMVALUE NAME="NewIndication"><INSTANCE CLASSNAME="Test_Beacon"><PROPERTY NAME="Call" TYPE="string"><VALUE>c)" +
                                std::to_string(sequence) +
                                R"(</VALUE></PROPERTY><PROPERTY NAME="SequenceContext" TYPE="string"><VALUE>ctx</VALUE></PROPERTY><PROPERTY NAME="SequenceNumber" TYPE="sint64"><VALUE>)" +
                                std::to_string(sequence) + "</VALUE></PROPERTY></INSTANCE></EXPPARAMVALUE>");
    };
    for (int sequence : {0, 1, 1, 2}) {  // the second 1 is a redelivery
        SCOPED_TRACE(sequence);
        EXPECT_NE(rawExchange(listener.port(), post(indication(sequence))).find("EXPMETHODRESPONSE"), std::string::npos);
    }
    EXPECT_EQ(listener.wait(std::chrono::seconds(20)), 0);  // --count 3: three printed, then it ends
    const std::string out = listener.output();
    EXPECT_TRUE(std::regex_match(out, pattern(R"(\{"class":"Test_Beacon","time":"[0-9.+]{25}","from":"127.0.0.1","properties":\{"Call":"c0","SequenceContext":"ctx","SequenceNumber":0\}\}
\{"class":"Test_Beacon",[^\n]*"properties":\{"Call":"c1",[^\n]*\}\}
\{"class":"Test_Beacon",[^\n]*"properties":\{"Call":"c2",[^\n]*\}\}
)"))) << out;
}
