#include "MethodCommand.h"

namespace tovra {

bool sendFrame(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *m, uint8_t command, uint16_t length,
               std::span<const uint8_t> params) {
    frameRequest(m, command, length, params);
    if (sendRequest(fd, m)) return true;
    *rc = failedStatus();
    return false;
}

const char *statusText(const CMPIStatus &st) {
    if (st.msg == nullptr || st.msg->hdl == nullptr) return "";
    const char *text = CMGetCharsPtr(st.msg, nullptr);
    return text != nullptr ? text : "";
}

}  // namespace tovra
