// Runs the CIM-XML request fuzz entry on seeded mutations of real requests
// (bytes flipped, cut, repeated, markup spliced in), so every build exercises
// the decoder without a fuzzing engine.
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

const std::string kNs = R"(<LOCALNAMESPACEPATH><NAMESPACE NAME="tovra"/><NAMESPACE NAME="cimv2"/></LOCALNAMESPACEPATH>)";
const std::string kHead = R"(<?xml version="1.0" encoding="utf-8" ?><CIM CIMVERSION="2.0" DTDVERSION="2.0"><MESSAGE ID="1" PROTOCOLVERSION="1.0"><SIMPLEREQ>)";
const std::string kTail = "</SIMPLEREQ></MESSAGE></CIM>";

const std::vector<std::string> kSeeds = {
    kHead + R"(<IMETHODCALL NAME="EnumerateInstances">)" + kNs +
        R"(<IPARAMVALUE NAME="ClassName"><CLASSNAME NAME="Tovra_StoragePool"/></IPARAMVALUE><IPARAMVALUE NAME="PropertyList"><VALUE.ARRAY><VALUE>A</VALUE><VALUE.NULL/></VALUE.ARRAY></IPARAMVALUE></IMETHODCALL>)" + kTail,
    kHead + R"(<IMETHODCALL NAME="GetInstance">)" + kNs +
        R"(<IPARAMVALUE NAME="InstanceName"><INSTANCENAME CLASSNAME="Tovra_StoragePool"><KEYBINDING NAME="InstanceID"><KEYVALUE VALUETYPE="string" TYPE="string">Raid &amp; &#252;</KEYVALUE></KEYBINDING></INSTANCENAME></IPARAMVALUE></IMETHODCALL>)" + kTail,
    kHead + R"(<METHODCALL NAME="Echo"><LOCALINSTANCEPATH>)" + kNs +
        R"(<INSTANCENAME CLASSNAME="W"><KEYBINDING NAME="N"><KEYVALUE VALUETYPE="numeric">1</KEYVALUE></KEYBINDING></INSTANCENAME></LOCALINSTANCEPATH><PARAMVALUE NAME="S" PARAMTYPE="string"><VALUE><![CDATA[x<y]]></VALUE></PARAMVALUE><PARAMVALUE NAME="W"><VALUE.REFERENCE><INSTANCEPATH><NAMESPACEPATH><HOST>h</HOST>)" +
        kNs + R"(</NAMESPACEPATH><INSTANCENAME CLASSNAME="W"/></INSTANCEPATH></VALUE.REFERENCE></PARAMVALUE></METHODCALL>)" + kTail,
};

const std::vector<std::string> kFragments = {
    "<", ">", "/>", "&", "&#0;", "&#xD800;", "&amp;", "<![CDATA[", "]]>", "<!DOCTYPE CIM [<!ENTITY e \"x\">]>", "&e;",
    "<VALUE.ARRAY>", "</VALUE>", "<KEYBINDING NAME=\"K\">", "<VALUE.REFERENCE>", "\"", "=", "\xFF", "\xC3", "\0",
};

}  // namespace

int main(int argc, char **argv) {
    const unsigned runs = argc > 1 ? static_cast<unsigned>(std::stoul(argv[1])) : 20000;
    std::mt19937 rng(4711);
    for (unsigned i = 0; i < runs; ++i) {
        std::string input = kSeeds[rng() % kSeeds.size()];
        for (unsigned m = 1 + rng() % 4; m > 0; --m) {
            size_t at = input.empty() ? 0 : rng() % input.size();
            switch (rng() % 5) {
                case 0: if (!input.empty()) input[at] = static_cast<char>(rng()); break;
                case 1: input.resize(at); break;
                case 2: input.insert(at, kFragments[rng() % kFragments.size()]); break;
                case 3: input.insert(at, input.substr(at, rng() % 64)); break;
                default: input.erase(at, rng() % 16); break;
            }
        }
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(input.data()), input.size());
    }
    std::printf("%u requests decoded\n", runs);
    return 0;
}
