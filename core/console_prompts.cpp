// Console prompts: print the title and text of each message to standard error.
// Shown messages are gone at once, so a worker waiting for one to be hidden goes on.
#include "core/console_prompts.hpp"

#include <iostream>

namespace {

class GoneMessage : public ShownMessage {
public:
    bool isVisible() const override { return false; }
    void hide() override {}
};

const char* iconName(PromptIcon icon) {
    switch (icon) {
        case PromptIcon::Information: return "info";
        case PromptIcon::Warning: return "warning";
        case PromptIcon::Critical: return "error";
    }
    return "info";
}

void print(const PromptMessage& message) {
    std::cerr << "[" << iconName(message.icon) << "] " << message.title.toStdString() << ": "
              << message.text.toStdString() << std::endl;
}

}  // namespace

std::shared_ptr<ShownMessage> ConsolePrompts::show(const PromptMessage& message) {
    print(message);
    return std::make_shared<GoneMessage>();
}

void ConsolePrompts::exec(const PromptMessage& message) { print(message); }

QString ConsolePrompts::askSaveFileName(const QString&, const QString&, const QString&) { return saveFileName_; }

QString ConsolePrompts::askOpenFileName(const QString&, const QString&, const QString&) { return openFileName_; }

std::optional<QString> ConsolePrompts::askText(const QString&, const QString&, const QString&) { return std::nullopt; }

std::shared_ptr<UserPrompts> promptsOrConsole(std::shared_ptr<UserPrompts> prompts) {
    // Never destroyed: a worker still running during exit may print through it.
    static const auto* const console = new std::shared_ptr<UserPrompts>(std::make_shared<ConsolePrompts>());
    return prompts ? std::move(prompts) : *console;
}

UserPrompts& promptsOrConsole(UserPrompts* prompts) {
    return prompts ? *prompts : *promptsOrConsole(std::shared_ptr<UserPrompts>());
}
