#pragma once

#include "Models/PipelineModels.hpp"

#include <string>

namespace corvane::TestSupport {

/// An event as one line of text.
inline std::string line(const PipelineEvent& event) {
    struct Line {
        std::string operator()(const PipelineEvents::StepStarted& e) { return "> " + std::string(title(e.step)); }
        std::string operator()(const PipelineEvents::StepFinished& e) { return "< " + std::string(title(e.step)); }
        std::string operator()(const PipelineEvents::Log& e) { return e.message; }
        std::string operator()(const PipelineEvents::UntimestampedSigningApprovalRequired& e) {
            return "approval " + std::to_string(e.retryCount);
        }
        std::string operator()(const PipelineEvents::Finished& e) { return "finished " + lastPathComponent(e.url); }
        std::string operator()(const PipelineEvents::Failed& e) { return "failed " + e.message; }
        std::string operator()(const PipelineEvents::MountInteractionRequired&) { return "mount"; }
        std::string operator()(const PipelineEvents::Cancelled&) { return "cancelled"; }
    };
    return std::visit(Line(), event);
}

} // namespace corvane::TestSupport
