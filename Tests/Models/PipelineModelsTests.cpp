#include "Models/PipelineModels.hpp"
#include "Models/SigningIdentity.hpp"

#include <gtest/gtest.h>

namespace corvane {
namespace {

TEST(DropKind, isToldByTheExtensionInAnyCase) {
    EXPECT_EQ(classify("/in/Tool.DMG"), DropKind::dmg);
    EXPECT_EQ(classify("A.Pkg"), DropKind::pkg);
    for (const char* other : {"Tool.mpkg", "Tool.dmg.zip", "Tool", "archive.dmg.part"})
        EXPECT_EQ(classify(other), std::nullopt);
    EXPECT_EQ(dropKind("DMG"), std::nullopt);
}

TEST(PipelineStep, stepsOfEachActionAndRawValues) {
    using enum PipelineStep;
    EXPECT_EQ(steps(PipelineAction::dmgToPkg), (std::vector{verifyInput, mount, stage, build, sign, verify}));
    EXPECT_EQ(steps(PipelineAction::recompressPkg), (std::vector{verifyInput, expand, build, sign, verify}));
    EXPECT_EQ(steps(PipelineAction::signOnly), (std::vector{verifyInput, sign, verify}));
    EXPECT_EQ(pipelineStep("Verify result"), verify);
    EXPECT_EQ(pipelineStep("verify"), std::nullopt);
    EXPECT_EQ(pipelineAction("recompressPkg"), PipelineAction::recompressPkg);
    EXPECT_EQ(pipelineAction("sign"), std::nullopt);
}

TEST(PipelineError, describesAToolWithItsTrimmedStandardError) {
    EXPECT_EQ(PipelineError::toolFailed("productsign", 1, "error: x\n").errorDescription(),
              "productsign failed (exit 1): error: x");
    EXPECT_EQ(PipelineError::toolFailed("pkgbuild", 2, "  \n").errorDescription(), "pkgbuild failed (exit 2)");
    EXPECT_EQ(PipelineError::toolFailed("hdiutil", -1, "").errorDescription(), "hdiutil failed (exit -1)");
    EXPECT_EQ(PipelineError::untrustedInput(" as it is ").errorDescription(), " as it is ");
}

TEST(SigningIdentity, takesInstallerIdentitiesFromTheListing) {
    const auto identities = SigningIdentity::parse("  1) 0123 \"Developer ID Installer: A (T)\"\n"
                                                   "  2) 4567 \"Developer ID Application: A (T)\"\n"
                                                   "  3) 89AB \"Developer ID Installer: A (T)\"\n"
                                                   "  4) CDEF \"Developer ID Installer: \"quoted\" (T)\" (ERROR)\n"
                                                   "  5) CDEF \"developer id installer: B\"\n"
                                                   "  6) \"Developer ID Installer: one quote\n"
                                                   "     5 valid identities found\n");
    EXPECT_EQ(identities, (std::vector<SigningIdentity>{{"Developer ID Installer: A (T)"},
                                                        {"Developer ID Installer: \"quoted\" (T)"}}));
    EXPECT_TRUE(SigningIdentity::parse("     0 valid identities found\n").empty());
}

} // namespace
} // namespace corvane
