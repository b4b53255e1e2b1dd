// Shared by the room set-up tests: prompts that record every message and give prepared
// answers, settings kept in a private folder, widget lookup and page pictures.
#pragma once

#include <QDir>
#include <QSettings>
#include <QStringList>
#include <QtTest>

#include "core/user_prompts.hpp"
#include "workspace/wscreator.hpp"

class RecordingPrompts : public UserPrompts {
public:
    std::vector<PromptMessage> messages;
    QStringList questions;  // "title|directory or initial text|filter or label"
    QString openFileName;
    std::optional<QString> text;

    std::shared_ptr<ShownMessage> show(const PromptMessage& message) override {
        messages.push_back(message);
        return nullptr;
    }
    void exec(const PromptMessage& message) override { messages.push_back(message); }
    QString askSaveFileName(const QString&, const QString&, const QString&) override { return QString(); }
    QString askOpenFileName(const QString& title, const QString& directory, const QString& filter) override {
        questions << title + "|" + directory + "|" + filter;
        return openFileName;
    }
    std::optional<QString> askText(const QString& title, const QString& label, const QString& initial) override {
        questions << title + "|" + initial + "|" + label;
        return text;
    }
    QString lastTitle() const { return messages.empty() ? QString() : messages.back().title; }
    QString lastText() const { return messages.empty() ? QString() : messages.back().text; }
};

inline void isolateSettings(const QString& folder) {
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, folder);
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, folder);
    qputenv("PYRA_RUNTIME_DIR", folder.toUtf8());
    qRegisterMetaType<std::vector<lum::FusionConfiguration>>("std::vector<lum::FusionConfiguration>");
}

template <typename T>
T* find(const WSCreator& dialog, const char* name) {
    T* found = dialog.findChild<T*>(name);
    if (!found) qFatal("no widget %s", name);
    return found;
}

// HALDEN_SCREENSHOT_DIR=docs/images refreshes the pictures of docs/.
inline bool savePicture(WSCreator& dialog, const QString& name) {
    const QString folder = qEnvironmentVariable("HALDEN_SCREENSHOT_DIR", HALDEN_BINARY_DIR "/screenshots");
    QCoreApplication::processEvents();  // let the layouts settle first
    return QDir().mkpath(folder) && dialog.grab().save(folder + "/" + name);
}
