#include "ExportClient.h"

#include <curl/curl.h>

#include <mutex>
#include <stdexcept>

namespace cimserver {

namespace {

constexpr std::size_t kMaxAnswer = 64 * 1024;

void globalInit() {
    static std::once_flag once;
    std::call_once(once, [] {
        if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) throw std::runtime_error("cannot start libcurl");
    });
}

// The answer's body is read (so the connection can be reused) and dropped;
// a longer one than any export response ends the transfer.
size_t discard(char *, size_t size, size_t count, void *userdata) {
    auto *total = static_cast<std::size_t *>(userdata);
    *total += size * count;
    return *total > kMaxAnswer ? 0 : size * count;
}

int progress(void *clientp, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return static_cast<const std::atomic<bool> *>(clientp)->load() ? 1 : 0;
}

struct HeaderList {
    curl_slist *list = nullptr;
    ~HeaderList() { curl_slist_free_all(list); }
    void add(const char *line) {
        curl_slist *more = curl_slist_append(list, line);
        if (more == nullptr) throw std::bad_alloc();
        list = more;
    }
};

}  // namespace

struct ExportClient::Impl {
    CURL *curl = nullptr;
    HeaderList headers;
};

ExportClient::ExportClient() : impl_(std::make_unique<Impl>()) {
    globalInit();
    impl_->curl = curl_easy_init();
    if (impl_->curl == nullptr) throw std::runtime_error("cannot make a libcurl handle");
    impl_->headers.add("Content-Type: application/xml; charset=\"utf-8\"");
    impl_->headers.add("CIMProtocolVersion: 1.0");
    impl_->headers.add("CIMExport: MethodRequest");
    impl_->headers.add("CIMExportMethod: ExportIndication");
    impl_->headers.add("Expect:");  // the body goes at once, without waiting for 100 Continue
}

ExportClient::~ExportClient() { curl_easy_cleanup(impl_->curl); }

ExportClient::Result ExportClient::post(const std::string &url, const std::string &body,
                                        std::chrono::milliseconds timeout, const std::atomic<bool> &cancel) {
    CURL *c = impl_->curl;
    std::size_t answered = 0;
    char error[CURL_ERROR_SIZE] = "";
    curl_easy_setopt(c, CURLOPT_URL, url.c_str());
    curl_easy_setopt(c, CURLOPT_PROTOCOLS_STR, "http");
    curl_easy_setopt(c, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(c, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(c, CURLOPT_HTTPHEADER, impl_->headers.list);
    curl_easy_setopt(c, CURLOPT_POST, 1L);
    curl_easy_setopt(c, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(c, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(c, CURLOPT_TIMEOUT_MS, static_cast<long>(timeout.count()));
    curl_easy_setopt(c, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(timeout.count()));
    curl_easy_setopt(c, CURLOPT_WRITEFUNCTION, &discard);
    curl_easy_setopt(c, CURLOPT_WRITEDATA, &answered);
    curl_easy_setopt(c, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(c, CURLOPT_XFERINFOFUNCTION, &progress);
    curl_easy_setopt(c, CURLOPT_XFERINFODATA, const_cast<std::atomic<bool> *>(&cancel));
    curl_easy_setopt(c, CURLOPT_ERRORBUFFER, error);
    const CURLcode rc = curl_easy_perform(c);
    curl_easy_setopt(c, CURLOPT_ERRORBUFFER, nullptr);
    Result r;
    if (rc != CURLE_OK) {
        r.error = error[0] != '\0' ? error : curl_easy_strerror(rc);
        return r;
    }
    long status = 0;
    curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &status);
    r.delivered = status >= 200 && status < 300;
    if (!r.delivered) r.error = "HTTP status " + std::to_string(status);
    return r;
}

}  // namespace cimserver
