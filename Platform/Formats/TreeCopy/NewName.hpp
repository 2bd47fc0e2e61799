#pragma once

#include "Platform/Formats/TreeCopy/Place.hpp"

#include <map>

namespace corvane::TreeCopying {

/// Attributes of what stood at the place before are not those of its successor. @throws FileError
void removeOldCompanion(const Place& item);

/// A name that something new takes over: what stands there stays until the commit, and without one the new is removed.
class NewName {
  public:
    /// @param place must outlive this
    explicit NewName(const Place& place) : place_(place), name_(place.name) {}
    NewName(const NewName&) = delete;
    NewName& operator=(const NewName&) = delete;
    ~NewName();

    const char* name() const { return name_.c_str(); }

    /// Makes the item under its own name, or, when that is taken, under another one.
    /// @param call from a name to what the system call says, negative for its refusal
    template <class Call>
    int make(const char* action, Call call) {
        int result = call(name_.c_str());
        if (result < 0 && errno == EEXIST) {
            takeAnother();
            result = call(name_.c_str());
        }
        require(result >= 0, action, place_.url);
        isMade_ = true;
        return result;
    }

    /// Gives the item its own name.
    /// @param besides attributes that the file system has not taken
    void commit(const std::map<std::string, std::string>& besides);

  private:
    void takeAnother();

    const Place& place_;
    std::string name_;
    bool isMade_ = false;
};

} // namespace corvane::TreeCopying
