// The questions and messages that workers and dialogs put to the user. The GUI implements
// them on the GUI thread (blocking the caller); the console and tests implement them directly.
#pragma once

#include <QString>

#include <memory>
#include <optional>

enum class PromptIcon { Information, Warning, Critical };

struct PromptMessage {
    QString title;
    QString text;
    PromptIcon icon = PromptIcon::Information;
};

// A message shown without blocking; the caller polls it and may hide it.
class ShownMessage {
public:
    virtual ~ShownMessage() = default;
    virtual bool isVisible() const = 0;
    virtual void hide() = 0;
};

class UserPrompts {
public:
    virtual ~UserPrompts() = default;

    // Shows a box with a single "Ok" button and returns at once.
    virtual std::shared_ptr<ShownMessage> show(const PromptMessage& message) = 0;
    // Shows a modal box with a single "Ok" button and returns when it is closed.
    virtual void exec(const PromptMessage& message) = 0;
    // A yes/no question; true for yes. Where nobody can answer (no console, no window) the
    // caller's own choice stands, so the default says yes.
    virtual bool confirm(const PromptMessage& question) {
        (void)question;
        return true;
    }
    // A file name to save to; empty when cancelled. Overwriting is the caller's to confirm.
    virtual QString askSaveFileName(const QString& title, const QString& directory, const QString& filter) = 0;
    // A file name to open; empty when cancelled.
    virtual QString askOpenFileName(const QString& title, const QString& directory, const QString& filter) = 0;
    // A line of text; nullopt when cancelled.
    virtual std::optional<QString> askText(const QString& title, const QString& label, const QString& initial) = 0;
};
