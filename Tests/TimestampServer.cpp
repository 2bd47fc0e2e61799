#include "Tests/TimestampServer.hpp"

#include "Platform/Trust/MemoryBio.hpp"
#include "Tests/TestHierarchy.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <openssl/pem.h>
#include <openssl/ts.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace corvane::TestSupport {
namespace {

using OpenSSL::Owner;
using OpenSSL::reading;
using OpenSSL::written;
using Request = Owner<TS_REQ, TS_REQ_free>;

template <class Result>
Result require(Result result) {
    return OpenSSL::require(result, "the time-stamp server cannot work");
}

/// The request with a nonce or an imprint that its sender did not choose.
std::string changed(const std::string& query, TimestampBehaviour behaviour) {
    const Request request(require(d2i_TS_REQ_bio(reading(query).get(), nullptr)));
    if (behaviour == TimestampBehaviour::wrongNonce) {
        const Owner<ASN1_INTEGER, ASN1_INTEGER_free> nonce(require(ASN1_INTEGER_new()));
        require(ASN1_INTEGER_set(nonce.get(), 4711));
        require(TS_REQ_set_nonce(request.get(), nonce.get()));
    } else {
        ASN1_OCTET_STRING* message = TS_MSG_IMPRINT_get_msg(TS_REQ_get_msg_imprint(request.get()));
        std::string bytes(static_cast<std::size_t>(ASN1_STRING_length(message)), '\0');
        require(ASN1_STRING_set(message, bytes.data(), static_cast<int>(bytes.size())));
    }
    return written([&](BIO* memory) { return i2d_TS_REQ_bio(memory, request.get()); });
}

ASN1_INTEGER* nextSerial(TS_resp_ctx*, void*) {
    ASN1_INTEGER* serial = ASN1_INTEGER_new();
    ASN1_INTEGER_set(serial, 1);
    return serial;
}

/// The authority's reply to a request. @param accepts false to reject every request
std::string reply(const std::string& query, TestHierarchy& hierarchy, bool accepts) {
    const Credential& authority = hierarchy.timestampAuthority();
    const Owner<TS_RESP_CTX, TS_RESP_CTX_free> context(require(TS_RESP_CTX_new()));
    const Owner<X509, X509_free> certificate(
        require(PEM_read_bio_X509(reading(authority.certificate).get(), nullptr, nullptr, nullptr)));
    const Owner<EVP_PKEY, EVP_PKEY_free> key(
        require(PEM_read_bio_PrivateKey(reading(authority.key).get(), nullptr, nullptr, nullptr)));
    const Owner<ASN1_OBJECT, ASN1_OBJECT_free> policy(require(OBJ_txt2obj("1.2.3.4.5.6", 1)));
    require(TS_RESP_CTX_set_signer_cert(context.get(), certificate.get()));
    require(TS_RESP_CTX_set_signer_key(context.get(), key.get()));
    require(TS_RESP_CTX_set_signer_digest(context.get(), EVP_sha256()));
    require(TS_RESP_CTX_set_def_policy(context.get(), policy.get()));
    require(TS_RESP_CTX_set_accuracy(context.get(), 1, 0, 0));
    TS_RESP_CTX_set_serial_cb(context.get(), nextSerial, nullptr);
    if (accepts) {
        for (const EVP_MD* digest : {EVP_sha1(), EVP_sha256(), EVP_sha512()}) {
            require(TS_RESP_CTX_add_md(context.get(), digest));
        }
    }
    const Owner<TS_RESP, TS_RESP_free> response(require(TS_RESP_create_response(context.get(), reading(query).get())));
    return written([&](BIO* memory) { return i2d_TS_RESP_bio(memory, response.get()); });
}

/// The body of a reply with status 200.
std::string body(const std::string& query, TimestampBehaviour behaviour) {
    using enum TimestampBehaviour;
    if (behaviour == withoutToken) return std::string("\x30\x05\x30\x03\x02\x01\x00", 7);
    if (behaviour == webPage) return "<html><body>Welcome to this hotel's network</body></html>";
    if (behaviour == oversized) return std::string(std::size_t{2} << 20, 'x');
    if (behaviour == stranger) return reply(query, TestHierarchy::stranger(), true);
    if (behaviour == rejected) return reply(query, TestHierarchy::shared(), false);
    if (behaviour == wrongNonce || behaviour == wrongImprint) {
        return reply(changed(query, behaviour), TestHierarchy::shared(), true);
    }
    std::string bytes = reply(query, TestHierarchy::shared(), true);
    // The signature value stands at the end.
    if (behaviour == damaged) bytes.back() = static_cast<char>(bytes.back() ^ 1);
    return bytes;
}

std::string response(const std::string& query, TimestampBehaviour behaviour) {
    if (behaviour == TimestampBehaviour::unavailable) {
        return "HTTP/1.1 503 Service Unavailable\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
    }
    if (behaviour == TimestampBehaviour::redirect) {
        return "HTTP/1.1 301 Moved Permanently\r\nLocation: file:///etc/passwd\r\nContent-Length: 0\r\n"
               "Connection: close\r\n\r\n";
    }
    const std::string content = body(query, behaviour);
    return "HTTP/1.1 200 OK\r\nContent-Type: application/timestamp-reply\r\nContent-Length: " +
           std::to_string(content.size()) + "\r\nConnection: close\r\n\r\n" + content;
}

/// Reads one POST and returns its body; what the peer cuts short comes back short.
std::string readPost(int connection) {
    std::string bytes;
    std::size_t wanted = std::string::npos;
    char buffer[4096];
    while (bytes.size() < wanted) {
        const ssize_t count = ::recv(connection, buffer, sizeof buffer, 0);
        if (count <= 0) break;
        bytes.append(buffer, static_cast<std::size_t>(count));
        const std::size_t end = bytes.find("\r\n\r\n");
        if (wanted != std::string::npos || end == std::string::npos) continue;
        const std::size_t length = bytes.find("Content-Length: ");
        wanted = end + 4 + (length < end ? std::strtoul(bytes.c_str() + length + 16, nullptr, 10) : 0);
    }
    const std::size_t end = bytes.find("\r\n\r\n");
    return end == std::string::npos ? "" : bytes.substr(end + 4);
}

} // namespace

TimestampServer::TimestampServer(std::vector<TimestampBehaviour> behaviours)
    : behaviours_(std::move(behaviours)), listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    // A proxy of the environment is not asked for the loopback interface.
    ::setenv("no_proxy", "127.0.0.1", 1);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    require(::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), size) == 0);
    require(::getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&address), &size) == 0);
    url_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/ts";
    // A port that is taken and not listened to refuses.
    if (behaviours_.front() == TimestampBehaviour::refusing) return;
    int ends[2];
    require(::pipe2(ends, O_CLOEXEC) == 0);
    wakeUp_ = UniqueDescriptor(ends[1]);
    require(::listen(listener_.get(), 16) == 0);
    thread_ = std::thread([this, wakeUp = ends[0]] { serve(wakeUp); });
}

TimestampServer::~TimestampServer() {
    wakeUp_.reset();
    if (thread_.joinable()) thread_.join();
}

void TimestampServer::serve(int wakeUp) {
    const UniqueDescriptor owner(wakeUp);
    for (;;) {
        pollfd watched[] = {{listener_.get(), POLLIN, 0}, {wakeUp, POLLIN, 0}};
        if (::poll(watched, 2, -1) < 0) continue;
        if (watched[1].revents != 0) return;
        UniqueDescriptor connection(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (connection) answer(std::move(connection));
    }
}

void TimestampServer::answer(UniqueDescriptor connection) {
    const std::string query = readPost(connection.get());
    const auto index = static_cast<std::size_t>(requestCount_++);
    const TimestampBehaviour behaviour = behaviours_[std::min(index, behaviours_.size() - 1)];
    if (behaviour == TimestampBehaviour::silent) {
        silent_.push_back(std::move(connection));
        return;
    }
    std::string text;
    try {
        text = response(query, behaviour);
    } catch (const std::exception&) {
        text = "HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
    }
    ::send(connection.get(), text.data(), text.size(), MSG_NOSIGNAL);
}

} // namespace corvane::TestSupport
