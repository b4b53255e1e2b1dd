// The user's questions and messages as Qt dialogs. Callable from any thread: the dialogs
// always live on the GUI thread, and a worker asking a question waits for the answer.
#pragma once

#include <QObject>
#include <QPointer>

#include "core/user_prompts.hpp"

class QMessageBox;
class QWidget;

class GuiPrompts : public QObject, public UserPrompts {
    Q_OBJECT
public:
    // Must be created on the GUI thread; boxes are centred on `dialogParent` when given.
    explicit GuiPrompts(QWidget* dialogParent = nullptr);

    // Does not wait for the box to appear: a worker that shows a box and later polls it
    // must never depend on the GUI thread being free (it may be waiting for that worker).
    std::shared_ptr<ShownMessage> show(const PromptMessage& message) override;
    void exec(const PromptMessage& message) override;
    bool confirm(const PromptMessage& question) override;
    QString askSaveFileName(const QString& title, const QString& directory, const QString& filter) override;
    QString askOpenFileName(const QString& title, const QString& directory, const QString& filter) override;
    std::optional<QString> askText(const QString& title, const QString& label, const QString& initial) override;

    // A styled box with the message's title, icon and text and one "Ok" button.
    static QMessageBox* makeBox(const PromptMessage& message, QWidget* parent);

private:
    bool onGuiThread() const;
    // Runs `job` on the GUI thread and returns when it has finished.
    template <typename Job>
    void onGui(Job job);

    QPointer<QWidget> dialogParent_;
};
