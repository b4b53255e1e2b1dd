// Prompts for programs without a GUI: messages go to standard error, questions get the
// answers configured beforehand.
#pragma once

#include "core/user_prompts.hpp"

class ConsolePrompts : public UserPrompts {
public:
    std::shared_ptr<ShownMessage> show(const PromptMessage& message) override;
    void exec(const PromptMessage& message) override;
    QString askSaveFileName(const QString& title, const QString& directory, const QString& filter) override;
    QString askOpenFileName(const QString& title, const QString& directory, const QString& filter) override;
    std::optional<QString> askText(const QString& title, const QString& label, const QString& initial) override;

    void setSaveFileName(const QString& name) { saveFileName_ = name; }
    void setOpenFileName(const QString& name) { openFileName_ = name; }

private:
    QString saveFileName_;
    QString openFileName_;
};

// What a caller that was given no prompts talks to: one console implementation shared by
// the whole process, so every worker and dialog falls back the same way.
std::shared_ptr<UserPrompts> promptsOrConsole(std::shared_ptr<UserPrompts> prompts);
UserPrompts& promptsOrConsole(UserPrompts* prompts);
