#include "Platform/Trust/HTTPClient.hpp"

#include <curl/curl.h>

#include <array>
#include <memory>
#include <string_view>
#include <system_error>

namespace corvane::HTTPClient {
namespace {

struct Free {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    void operator()(CURLU* address) const { curl_url_cleanup(address); }
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
    void operator()(char* text) const { curl_free(text); }
};

/// The bytes of an answer as they come, up to a limit.
struct Answer {
    std::size_t limit;
    std::string body;
    bool isTooLong = false;
};

std::size_t receive(char* bytes, std::size_t size, std::size_t count, void* context) {
    auto& answer = *static_cast<Answer*>(context);
    answer.isTooLong = size * count > answer.limit - answer.body.size();
    if (answer.isTooLong) return 0;
    answer.body.append(bytes, size * count);
    return size * count;
}

void allowOnlyWebProtocols(CURL* handle) {
#if LIBCURL_VERSION_NUM >= 0x075500
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
#else
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS, CURLPROTO_HTTP | CURLPROTO_HTTPS);
#endif
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 0L);
}

void setLimits(CURL* handle, const Limits& limits) {
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(limits.connect.count()));
    curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, static_cast<long>(limits.total.count()));
}

void setBody(CURL* handle, const std::string& body) {
    curl_easy_setopt(handle, CURLOPT_POST, 1L);
    curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
}

/// The library's reason, and the system's where it has one.
std::string reasonOf(CURL* handle, CURLcode result, const char* text) {
    long number = 0;
    curl_easy_getinfo(handle, CURLINFO_OS_ERRNO, &number);
    std::string reason = text[0] != '\0' ? text : curl_easy_strerror(result);
    if (number == 0) return reason;
    return reason + " (" + std::generic_category().message(static_cast<int>(number)) + ")";
}

std::string part(CURLU* address, CURLUPart which) {
    char* text = nullptr;
    if (curl_url_get(address, which, &text, 0) != CURLUE_OK) return "";
    const std::unique_ptr<char, Free> owner(text);
    return text;
}

} // namespace

std::string post(const std::string& address, const std::string& contentType, const std::string& body,
                 const Limits& limits) {
    const std::unique_ptr<CURL, Free> handle(curl_easy_init());
    const std::unique_ptr<curl_slist, Free> headers(
        curl_slist_append(nullptr, ("Content-Type: " + contentType).c_str()));
    if (!handle || !headers) throw Error(address + ": the HTTP library cannot start");
    Answer answer{.limit = limits.size, .body = {}};
    std::array<char, CURL_ERROR_SIZE> reason{};
    allowOnlyWebProtocols(handle.get());
    setLimits(handle.get(), limits);
    setBody(handle.get(), body);
    curl_easy_setopt(handle.get(), CURLOPT_URL, address.c_str());
    curl_easy_setopt(handle.get(), CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(handle.get(), CURLOPT_WRITEFUNCTION, receive);
    curl_easy_setopt(handle.get(), CURLOPT_WRITEDATA, &answer);
    curl_easy_setopt(handle.get(), CURLOPT_ERRORBUFFER, reason.data());

    const CURLcode result = curl_easy_perform(handle.get());
    if (answer.isTooLong) throw Error(address + ": the answer has more than " + std::to_string(limits.size) + " bytes");
    if (result != CURLE_OK) throw Error(address + ": " + reasonOf(handle.get(), result, reason.data()));
    long status = 0;
    curl_easy_getinfo(handle.get(), CURLINFO_RESPONSE_CODE, &status);
    if (status != 200) throw Error(address + ": HTTP status " + std::to_string(status));
    return std::move(answer.body);
}

void requireAddress(const std::string& address) {
    const std::unique_ptr<CURLU, Free> parts(curl_url());
    const bool isURL = curl_url_set(parts.get(), CURLUPART_URL, address.c_str(), 0) == CURLUE_OK;
    const std::string scheme = isURL ? part(parts.get(), CURLUPART_SCHEME) : "";
    const bool isWeb = scheme == "http" || scheme == "https";
    if (!isWeb || part(parts.get(), CURLUPART_HOST).empty()) {
        throw Error("\"" + address + "\" is no address of the form http://HOST/PATH or https://HOST/PATH");
    }
    if (!part(parts.get(), CURLUPART_USER).empty() || !part(parts.get(), CURLUPART_PASSWORD).empty()) {
        throw Error("an address with a user or a password is not accepted");
    }
}

} // namespace corvane::HTTPClient
