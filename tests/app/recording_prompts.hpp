// Prompts for GUI tests: real message boxes are replaced by a record of what was said,
// and the save question is answered with a path chosen by the test.
#pragma once

#include <QAtomicInt>
#include <QMutex>
#include <QOpenGLWidget>
#include <QPainter>
#include <QStringList>

#include "app/gui_prompts.hpp"

class RecordingPrompts : public GuiPrompts {
public:
    std::shared_ptr<ShownMessage> show(const PromptMessage& message) override {
        record(message);
        return std::make_shared<Gone>();
    }
    void exec(const PromptMessage& message) override { record(message); }
    QString askSaveFileName(const QString&, const QString& directory, const QString&) override {
        saveQuestions.fetchAndAddOrdered(1);
        lastSaveDirectory = directory;
        return saveName;
    }
    bool confirm(const PromptMessage& question) override {
        record(question);
        return confirmAnswer;
    }

    QStringList titles() const {
        QMutexLocker lock(&mutex_);
        return titles_;
    }

    QString saveName;
    QString lastSaveDirectory;
    bool confirmAnswer = false;
    QAtomicInt saveQuestions = 0;

private:
    class Gone : public ShownMessage {
    public:
        bool isVisible() const override { return false; }
        void hide() override {}
    };

    void record(const PromptMessage& message) {
        QMutexLocker lock(&mutex_);
        titles_ << message.title;
    }

    mutable QMutex mutex_;
    QStringList titles_;
};

// Screenshots go to HALDEN_SCREENSHOT_DIR when it is set (docs/images/ when refreshing the
// documentation's pictures), else beside the test build.
inline QString screenshotPath(const QString& name) {
    const QByteArray dir = qgetenv("HALDEN_SCREENSHOT_DIR");
    return (dir.isEmpty() ? QString(HALDEN_BINARY_DIR "/tests/app") : QString::fromLocal8Bit(dir)) + "/" + name;
}

// The window as it shows on screen. A plain grab() redraws the 3D view without what is
// painted over it (the cameras' labels), so the view's own picture is laid in, and the
// widgets standing on it (notes, spinner) on top again.
inline QPixmap windowPicture(QWidget& window) {
    QPixmap picture = window.grab();
    auto* view = window.findChild<QOpenGLWidget*>("viewer");
    if (!view || !view->isVisible()) return picture;
    QPainter painter(&picture);
    const QPoint at = view->mapTo(&window, QPoint(0, 0));
    painter.drawImage(QRect(at, view->size()), view->grabFramebuffer());
    for (QWidget* child : view->findChildren<QWidget*>(QString(), Qt::FindDirectChildrenOnly))
        if (child->isVisible()) child->render(&painter, at + child->pos());
    return picture;
}
