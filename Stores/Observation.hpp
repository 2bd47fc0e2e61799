#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace corvane {

/// A subscription, which lasts as long as this lives. It may outlive what it observes, and may be ended anywhere on the
/// main thread, also during a notification.
class Observation {
  public:
    Observation() = default;
    explicit Observation(std::function<void()> end) : end_(std::move(end)) {}
    Observation(Observation&& other) noexcept : end_(std::exchange(other.end_, nullptr)) {}
    Observation& operator=(Observation&& other) noexcept {
        Observation ended(std::move(*this));
        end_ = std::exchange(other.end_, nullptr);
        return *this;
    }
    ~Observation() {
        if (end_) end_();
    }

  private:
    std::function<void()> end_;
};

/// Those who want to know when a property changes. For one thread; observers may come, go and cause further
/// notifications while they are notified.
template <class Property>
class Observers {
  public:
    /// @param property none for all of them
    [[nodiscard]] Observation add(std::optional<Property> property, std::function<void(Property)> changed) {
        auto entry = std::make_shared<const Entry>(Entry{property, std::move(changed)});
        entries_->push_back(entry);
        return Observation([entries = std::weak_ptr(entries_), entry] {
            if (const auto left = entries.lock()) std::erase(*left, entry);
        });
    }

    void notify(Property property) const {
        // The list and its owner may change, or go, under the calls.
        const std::shared_ptr<Entries> entries = entries_;
        const Entries notified = *entries;
        for (const auto& entry : notified) {
            const bool isLeft = std::find(entries->begin(), entries->end(), entry) != entries->end();
            if (isLeft && entry->property.value_or(property) == property) entry->changed(property);
        }
    }

  private:
    struct Entry {
        std::optional<Property> property;
        std::function<void(Property)> changed;
    };
    using Entries = std::vector<std::shared_ptr<const Entry>>;

    std::shared_ptr<Entries> entries_ = std::make_shared<Entries>();
};

} // namespace corvane
