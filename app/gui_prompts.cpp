// GUI prompts: each call either runs at once (GUI thread) or is handed to the GUI thread
// with a blocking queued call; non-blocking boxes report their state through a flag the
// GUI thread keeps up to date.
#include "app/gui_prompts.hpp"

#include <QFileDialog>
#include <QInputDialog>
#include <QMessageBox>
#include <QPushButton>
#include <QThread>

#include <algorithm>
#include <atomic>

#include "style/style.hpp"

namespace {

QMessageBox::Icon toQt(PromptIcon icon) {
    switch (icon) {
        case PromptIcon::Information: return QMessageBox::Information;
        case PromptIcon::Warning: return QMessageBox::Warning;
        case PromptIcon::Critical: return QMessageBox::Critical;
    }
    return QMessageBox::Information;
}

// State of a box shown without blocking. The flag is written on the GUI thread and read
// from anywhere, so polling never waits for the GUI thread.
class GuiShownMessage : public ShownMessage, public std::enable_shared_from_this<GuiShownMessage> {
public:
    explicit GuiShownMessage(QObject* guiContext) : context_(guiContext) {}

    bool isVisible() const override { return visible_->load(); }

    void hide() override {
        *visible_ = false;
        // The box itself is only ever touched on the GUI thread.
        QMetaObject::invokeMethod(
            context_, [self = shared_from_this()] {
                if (self->box_) self->box_->close();
            },
            Qt::QueuedConnection);
    }

    // On the GUI thread, once the box exists.
    void attach(QMessageBox* box) {
        box_ = box;
        auto visible = visible_;
        QObject::connect(box, &QMessageBox::finished, [visible] { *visible = false; });
        QObject::connect(box, &QObject::destroyed, [visible] { *visible = false; });
        // A hide() that arrived before the box existed wins.
        if (*visible_)
            box->show();
        else
            box->close();
    }

private:
    QPointer<QObject> context_;
    QPointer<QMessageBox> box_;
    std::shared_ptr<std::atomic<bool>> visible_ = std::make_shared<std::atomic<bool>>(true);
};

}  // namespace

GuiPrompts::GuiPrompts(QWidget* dialogParent) : dialogParent_(dialogParent) {}

bool GuiPrompts::onGuiThread() const { return QThread::currentThread() == thread(); }

template <typename Job>
void GuiPrompts::onGui(Job job) {
    if (onGuiThread())
        job();
    else
        QMetaObject::invokeMethod(this, job, Qt::BlockingQueuedConnection);
}

QMessageBox* GuiPrompts::makeBox(const PromptMessage& message, QWidget* parent) {
    auto* box = new QMessageBox(parent);
    box->setWindowTitle(message.title);
    box->setIcon(toQt(message.icon));
    box->setText(message.text);
    Style::setupMsgBox(*box);
    return box;
}

std::shared_ptr<ShownMessage> GuiPrompts::show(const PromptMessage& message) {
    auto handle = std::make_shared<GuiShownMessage>(this);
    auto present = [this, message, handle] {
        QMessageBox* box = makeBox(message, dialogParent_);
        box->setAttribute(Qt::WA_DeleteOnClose);
        box->setWindowModality(Qt::NonModal);
        handle->attach(box);
    };
    if (onGuiThread())
        present();
    else
        QMetaObject::invokeMethod(this, present, Qt::QueuedConnection);
    return handle;
}

void GuiPrompts::exec(const PromptMessage& message) {
    onGui([this, &message] {
        QMessageBox* box = makeBox(message, dialogParent_);
        box->exec();
        delete box;
    });
}

bool GuiPrompts::confirm(const PromptMessage& question) {
    bool yes = false;
    onGui([&] {
        QMessageBox* box = makeBox(question, dialogParent_);
        for (QAbstractButton* button : box->buttons()) {
            box->removeButton(button);
            delete button;
        }
        box->setStandardButtons(QMessageBox::Yes | QMessageBox::No);
        box->setDefaultButton(QMessageBox::No);
        yes = box->exec() == QMessageBox::Yes;
        delete box;
    });
    return yes;
}

QString GuiPrompts::askSaveFileName(const QString& title, const QString& directory, const QString& filter) {
    QString name;
    onGui([&] {
        name = QFileDialog::getSaveFileName(dialogParent_, title, directory, filter, nullptr,
                                            QFileDialog::DontConfirmOverwrite);
    });
    return name;
}

QString GuiPrompts::askOpenFileName(const QString& title, const QString& directory, const QString& filter) {
    QString name;
    onGui([&] { name = QFileDialog::getOpenFileName(dialogParent_, title, directory, filter); });
    return name;
}

std::optional<QString> GuiPrompts::askText(const QString& title, const QString& label, const QString& initial) {
    std::optional<QString> answer;
    onGui([&] {
        QInputDialog dialog(dialogParent_);
        dialog.setWindowTitle(title);
        dialog.setLabelText(label);
        dialog.setTextValue(initial);
        // Wide enough for a whole address: the default box shows about twenty characters.
        dialog.resize(std::max(dialog.sizeHint().width(), dialog.fontMetrics().averageCharWidth() * 60),
                      dialog.sizeHint().height());
        if (dialog.exec() == QDialog::Accepted) answer = dialog.textValue();
    });
    return answer;
}
