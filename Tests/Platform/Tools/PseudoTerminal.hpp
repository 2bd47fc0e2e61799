#pragma once

#include "Support/UniqueDescriptor.hpp"

#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <string_view>

namespace corvane::TestSupport {

/// A process in the foreground of a terminal of its own.
class PseudoTerminal {
  public:
    /// @param work of the process, which is to end in it
    explicit PseudoTerminal(const std::function<void()>& work) {
        int master = -1;
        child_ = ::forkpty(&master, nullptr, nullptr, nullptr);
        if (child_ == 0) {
            work();
            ::_exit(127);
        }
        master_ = UniqueDescriptor(master);
    }

    /// What the terminal shows up to some text, or up to the end.
    std::string readUntil(std::string_view text = "nothing of this kind") const {
        std::string shown;
        char character = 0;
        while (shown.find(text) == std::string::npos && ::read(master_.get(), &character, 1) == 1) shown += character;
        return shown;
    }
    void type(std::string_view text) const {
        EXPECT_EQ(::write(master_.get(), text.data(), text.size()), ssize_t(text.size()));
    }
    bool echoes() const {
        termios settings{};
        return ::tcgetattr(master_.get(), &settings) == 0 && (settings.c_lflag & ECHO) != 0;
    }
    void signalForeground(int number) const { EXPECT_EQ(::kill(-::tcgetpgrp(master_.get()), number), 0); }
    /// The exit status, or 128 and the number of a signal.
    int wait() const {
        int status = 0;
        ::waitpid(child_, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

  private:
    pid_t child_ = -1;
    UniqueDescriptor master_;
};

} // namespace corvane::TestSupport
