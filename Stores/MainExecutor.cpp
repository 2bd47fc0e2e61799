#include "Stores/MainExecutor.hpp"

#include <stdexcept>

namespace corvane {
namespace {

std::mutex installedMutex;
std::shared_ptr<MainExecutor> installed;

} // namespace

void MainExecutor::install(std::shared_ptr<MainExecutor> executor) {
    const std::lock_guard lock(installedMutex);
    installed = std::move(executor);
}

std::shared_ptr<MainExecutor> MainExecutor::shared() {
    const std::lock_guard lock(installedMutex);
    if (!installed) throw std::logic_error("no main executor is installed");
    return installed;
}

void MainRunLoop::post(std::function<void()> task) {
    {
        const std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    changed_.notify_one();
}

void MainRunLoop::run() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [&] { return isStopped_ || !tasks_.empty(); });
        if (isStopped_) break;
        const std::function<void()> task = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        task();
        lock.lock();
    }
    isStopped_ = false;
}

void MainRunLoop::stop() {
    {
        const std::lock_guard lock(mutex_);
        isStopped_ = true;
    }
    changed_.notify_all();
}

} // namespace corvane
