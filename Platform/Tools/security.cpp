// The keychain tool: lists signing identities, and sets up the keychain that the other tools use.

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Tools/Terminal.hpp"
#include "Platform/Tools/Termination.hpp"
#include "Platform/Tools/Tool.hpp"
#include "Platform/Trust/KeyFile.hpp"
#include "Platform/Trust/Keychain.hpp"
#include "Support/FileManager.hpp"
#include "Support/Text.hpp"

#include <algorithm>
#include <iterator>
#include <optional>

namespace corvane::Tools {
namespace {

constexpr std::uint64_t fileLimit = std::uint64_t{1} << 20;

constexpr const char* usage = "Usage: security find-identity -v -p basic\n"
                              "       security import FILE [--passphrase-file FILE]\n"
                              "       security add-trusted-cert FILE\n"
                              "       security set-timestamp-authority URL\n"
                              "       security delete-identity SHA1";

void say(const std::string& text) { print("security: " + text + "\n"); }

/// As users see it: the common name, or, for a certificate without one, the fingerprint.
std::string quotedName(const Certificate& certificate) {
    const std::string name = certificate.commonName();
    return "\"" + (name.empty() ? upperHexadecimal(certificate.sha1()) : Text::printable(name)) + "\"";
}

std::vector<Identity> validIdentities(const Keychain& keychain) {
    std::vector<Identity> identities = keychain.identities();
    const Time now = currentTime();
    std::erase_if(identities, [&](const Identity& identity) { return !keychain.chain(identity, now).isTrusted(); });
    return identities;
}

/// The status is 0 whatever happens, as that of the system's own tool; a keychain that cannot be read has no
/// identities.
int findIdentity(const Keychain& keychain) {
    std::vector<Identity> identities;
    try {
        identities = validIdentities(keychain);
    } catch (const std::exception& error) {
        printError("security: " + std::string(error.what()) + "\n");
    }
    std::string text;
    for (std::size_t index = 0; index < identities.size(); ++index) {
        const std::string number = std::to_string(index + 1);
        text += std::string(number.size() < 3 ? 3 - number.size() : 0, ' ') + number + ") ";
        text += identities[index].fingerprint() + " " + quotedName(identities[index].certificate) + "\n";
    }
    print(text + "     " + std::to_string(identities.size()) + " valid identities found\n");
    return 0;
}

PassphraseSource passphraseSource(const std::string& file, const std::optional<std::string>& passphraseFile,
                                  const std::stop_token& stop) {
    if (!passphraseFile) return [file, stop] { return askForPassphrase("Passphrase of " + file + ": ", stop); };
    return [name = *passphraseFile] {
        const std::string content = FileManager::readFile(name, fileLimit);
        return content.substr(0, content.find_first_of("\r\n"));
    };
}

void importIdentity(const Keychain& keychain, const Identity& identity) {
    keychain.add(identity);
    say("imported the identity " + quotedName(identity.certificate) + " (" + identity.fingerprint() + ")");
    const CertificateChain chain = keychain.chain(identity, currentTime());
    if (chain.isTrusted()) return;
    printError("security: the identity cannot sign packages yet: " +
               (chain.expired ? "a certificate of its chain has expired" : chain.problem) + "\n");
}

int importFile(const Keychain& keychain, const std::string& file, const std::optional<std::string>& passphraseFile,
               const std::stop_token& stop) {
    const KeyFile content =
        KeyFile::parse(FileManager::readFile(file, fileLimit), file, passphraseSource(file, passphraseFile, stop));
    if (content.keys.empty()) {
        for (const Certificate& certificate : content.certificates) {
            keychain.addIntermediate(certificate);
            say("imported the certificate " + quotedName(certificate));
        }
        return 0;
    }
    for (const Identity& identity : content.identities(file)) importIdentity(keychain, identity);
    return 0;
}

int addTrustedRoot(const Keychain& keychain, const std::string& file) {
    const Certificate root = Certificate::parse(FileManager::readFile(file, fileLimit), file);
    keychain.addTrustedRoot(root);
    say("trusts the root " + quotedName(root) + " (" + upperHexadecimal(root.sha256()) + ")");
    return 0;
}

int setTimestampAuthority(const Keychain& keychain, const std::string& address) {
    keychain.setTimestampAuthority(address);
    say("takes timestamps from " + address);
    return 0;
}

int deleteIdentity(const Keychain& keychain, const std::string& fingerprint) {
    if (!keychain.removeIdentity(fingerprint)) {
        throw FormatError("there is no identity with the fingerprint " + fingerprint);
    }
    say("deleted the identity " + fingerprint);
    return 0;
}

/// Takes an option's value out of the arguments.
std::optional<std::string> takeOption(Arguments& arguments, const std::string& name) {
    const auto found = std::find(arguments.begin(), arguments.end(), name);
    if (found == arguments.end()) return std::nullopt;
    if (std::next(found) == arguments.end()) throw UsageError(usage);
    std::string value = *std::next(found);
    arguments.erase(found, found + 2);
    return value;
}

} // namespace

int security(const Arguments& arguments) {
    if (arguments.empty()) throw UsageError(usage);
    const std::string& command = arguments[0];
    Arguments operands(arguments.begin() + 1, arguments.end());
    const Keychain keychain = Keychain::ofUser();
    if (command == "find-identity" && operands == Arguments{"-v", "-p", "basic"}) return findIdentity(keychain);
    std::optional<std::string> passphraseFile;
    if (command == "import") passphraseFile = takeOption(operands, "--passphrase-file");
    if (operands.size() != 1 || operands[0].starts_with("-")) throw UsageError(usage);
    if (command == "import") {
        return runUntilTerminated(
            [&](const std::stop_token& stop) { return importFile(keychain, operands[0], passphraseFile, stop); });
    }
    if (command == "add-trusted-cert") return addTrustedRoot(keychain, operands[0]);
    if (command == "set-timestamp-authority") return setTimestampAuthority(keychain, operands[0]);
    if (command == "delete-identity") return deleteIdentity(keychain, operands[0]);
    throw UsageError(usage);
}

} // namespace corvane::Tools
