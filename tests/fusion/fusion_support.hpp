// Helpers for the fusion tests: prompts that record what the workers ask, and waits on
// conditions that keep this thread's events flowing.
#pragma once

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "core/user_prompts.hpp"
#include "lum/lum.hpp"

namespace fusiontest {

struct RecordedPrompt {
    std::string kind;  // "show" or "exec"
    std::string title;
    std::string text;
    PromptIcon icon;
};

class RecordingPrompts : public UserPrompts {
public:
    std::shared_ptr<ShownMessage> show(const PromptMessage& message) override;
    void exec(const PromptMessage& message) override;
    QString askSaveFileName(const QString& title, const QString& directory, const QString& filter) override;
    QString askOpenFileName(const QString&, const QString&, const QString&) override { return {}; }
    std::optional<QString> askText(const QString&, const QString&, const QString&) override { return std::nullopt; }

    std::vector<RecordedPrompt> prompts() const;
    QString saveName;
    std::vector<std::string> saveQuestions;  // title | filter

private:
    mutable std::mutex mutex;
    std::vector<RecordedPrompt> recorded;
};

// Waits (pumping this thread's events) until `done` holds or the time-out passes.
bool waitFor(const std::function<bool()>& done, std::chrono::seconds timeout = std::chrono::seconds(30));
// For waits whose outcome does not depend on time (the virtual room clock): only the test
// runner's own limit ends them.
inline constexpr std::chrono::seconds kNoTimeout{170};

// The simulated room on its virtual clock while in scope. Create it before any room's
// threads start and let it go after they are joined.
struct ScopedVirtualClock {
    ScopedVirtualClock() { ::setenv("PYRA_SIM_CLOCK", "virtual", 1); }
    ~ScopedVirtualClock() { ::unsetenv("PYRA_SIM_CLOCK"); }
    ScopedVirtualClock(const ScopedVirtualClock&) = delete;
    ScopedVirtualClock& operator=(const ScopedVirtualClock&) = delete;
};

}  // namespace fusiontest
