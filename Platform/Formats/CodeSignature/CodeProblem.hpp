#pragma once

/// What can be wrong with signed code, in the words that `codesign` uses for it.
namespace corvane::CodeSignature::CodeProblem {

constexpr const char* notSigned = "code object is not signed at all";
constexpr const char* signatureFailed = "invalid signature (code or signature have been modified)";
constexpr const char* signatureInvalid = "invalid or unsupported format for signature";
constexpr const char* unsupportedVersion = "unsupported type or version of signature";
constexpr const char* infoPropertyListFailed = "invalid Info.plist (plist or signature have been modified)";
constexpr const char* resourceDirectoryFailed =
    "invalid resource directory (directory or signature have been modified)";
constexpr const char* resourceFailed = "a sealed resource is missing or invalid";
constexpr const char* resourcesNotFound = "code has no resources but signature indicates they must be present";
constexpr const char* nestedCodeFailed = "nested code is modified or invalid";
constexpr const char* requirementFailed = "code failed to satisfy specified code requirement(s)";
constexpr const char* badBundle = "bundle format unrecognized, invalid, or unsuitable";
constexpr const char* notReadable = "the code cannot be read by the verifier (file system permissions etc.)";

constexpr const char* notTrusted = "CSSMERR_TP_NOT_TRUSTED";
constexpr const char* expired = "CSSMERR_TP_CERT_EXPIRED";

/// Those that only a strict look finds.
constexpr const char* detritus = "resource fork, Finder information, or similar detritus not allowed";
constexpr const char* badLink = "invalid destination for symbolic link in bundle";
constexpr const char* weakRules = "resource envelope is obsolete (custom omit rules)";
constexpr const char* oldEnvelope = "resource envelope is obsolete (version 1 signature)";
constexpr const char* unsealedRoot = "unsealed contents present in the bundle root";
constexpr const char* unsealedFrameworkRoot =
    "unsealed contents present in the root directory of an embedded framework";
constexpr const char* badFrameworkVersion = "embedded framework contains modified or invalid version";
constexpr const char* badExecutable = "main executable failed strict validation";
constexpr const char* unsupportedResource = "unsupported resource found (something not a directory, file or symlink)";
constexpr const char* notPlainFile = "the main executable or Info.plist must be a regular file (no symlinks, etc.)";

} // namespace corvane::CodeSignature::CodeProblem
