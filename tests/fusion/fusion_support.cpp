// Test helpers of the fusion tests: recording prompts and event-pumping waits.
#include "tests/fusion/fusion_support.hpp"

#include <QThread>


namespace fusiontest {

namespace {

class HiddenMessage : public ShownMessage {
public:
    bool isVisible() const override { return false; }
    void hide() override {}
};

}  // namespace

std::shared_ptr<ShownMessage> RecordingPrompts::show(const PromptMessage& message) {
    std::lock_guard<std::mutex> lock(mutex);
    recorded.push_back({"show", message.title.toStdString(), message.text.toStdString(), message.icon});
    return std::make_shared<HiddenMessage>();
}

void RecordingPrompts::exec(const PromptMessage& message) {
    std::lock_guard<std::mutex> lock(mutex);
    recorded.push_back({"exec", message.title.toStdString(), message.text.toStdString(), message.icon});
}

QString RecordingPrompts::askSaveFileName(const QString& title, const QString&, const QString& filter) {
    std::lock_guard<std::mutex> lock(mutex);
    saveQuestions.push_back((title + " | " + filter).toStdString());
    return saveName;
}

std::vector<RecordedPrompt> RecordingPrompts::prompts() const {
    std::lock_guard<std::mutex> lock(mutex);
    return recorded;
}

bool waitFor(const std::function<bool()>& done, std::chrono::seconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(10);
    }
    return true;
}

}  // namespace fusiontest
