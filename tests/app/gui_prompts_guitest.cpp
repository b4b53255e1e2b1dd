// The GUI prompts asked from a worker thread: boxes appear on the GUI thread with Halden's
// single "Ok" button, a shown box reports and obeys hide(), and blocking questions return
// what the user answered.
#include <QApplication>
#include <QInputDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <atomic>
#include <functional>
#include <thread>

#include "app/gui_prompts.hpp"

namespace {

QMessageBox* visibleBox(const QString& title) {
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        auto* box = qobject_cast<QMessageBox*>(widget);
        if (box && box->isVisible() && box->windowTitle() == title) return box;
    }
    return nullptr;
}

}  // namespace

class GuiPromptsTest : public QObject {
    Q_OBJECT
private slots:
    void shownBoxFollowsHideAndTheUser();
    void blockingQuestionsFromAWorkerGetTheAnswer();
};

void GuiPromptsTest::shownBoxFollowsHideAndTheUser() {
    GuiPrompts prompts;
    std::shared_ptr<ShownMessage> first, second;
    std::thread worker([&] {
        first = prompts.show({"First", "Shown from a worker.", PromptIcon::Critical});
        second = prompts.show({"Second", "Closed by the user.", PromptIcon::Warning});
    });
    worker.join();  // show() never waits for the GUI thread
    QVERIFY(first->isVisible());

    QTRY_VERIFY(visibleBox("First"));
    QMessageBox* box = visibleBox("First");
    QCOMPARE(box->text(), QString("Shown from a worker."));
    QCOMPARE(box->icon(), QMessageBox::Critical);
    QCOMPARE(box->buttons().size(), 1);
    QCOMPARE(box->buttons().front()->text(), QString("Ok"));

    std::thread hider([&] { first->hide(); });
    hider.join();
    QVERIFY(!first->isVisible());
    QTRY_VERIFY(!visibleBox("First"));

    QTRY_VERIFY(visibleBox("Second"));
    visibleBox("Second")->buttons().front()->click();
    QTRY_VERIFY(!second->isVisible());
}

void GuiPromptsTest::blockingQuestionsFromAWorkerGetTheAnswer() {
    // Modal dialogs run their own event loop, so the answers come from a timer inside it.
    auto answerWhenShown = [this](std::function<bool()> answer) {
        auto* timer = new QTimer(this);
        connect(timer, &QTimer::timeout, timer, [timer, answer] {
            if (answer()) timer->deleteLater();
        });
        timer->start(20);
    };

    GuiPrompts prompts;
    std::atomic<bool> done{false};
    bool wasModal = false;
    answerWhenShown([&] {
        QMessageBox* box = visibleBox("Modal");
        if (!box) return false;
        wasModal = box->isModal();
        box->buttons().front()->click();
        return true;
    });
    std::thread worker([&] {
        prompts.exec({"Modal", "Waits for Ok.", PromptIcon::Information});
        done = true;
    });
    QTRY_VERIFY_WITH_TIMEOUT(done, 20000);
    worker.join();
    QVERIFY(wasModal);

    for (const bool accept : {true, false}) {
        QString initial;
        bool wide = false;
        answerWhenShown([&] {
            auto* dialog = qobject_cast<QInputDialog*>(QApplication::activeModalWidget());
            if (!dialog) return false;
            initial = dialog->textValue();
            // A whole hub address fits without scrolling.
            wide = dialog->width() >= dialog->fontMetrics().horizontalAdvance("https://hub.example.com/tenant/eu-west");
            dialog->setTextValue("https://b");
            if (accept)
                dialog->accept();
            else
                dialog->reject();
            return true;
        });
        std::optional<QString> answer = QString("untouched");
        std::atomic<bool> answered{false};
        std::thread asker([&] {
            answer = prompts.askText("Address", "Address : ", "http://a");
            answered = true;
        });
        QTRY_VERIFY_WITH_TIMEOUT(answered, 20000);
        asker.join();
        QCOMPARE(initial, QString("http://a"));
        QVERIFY(wide);
        QCOMPARE(answer, accept ? std::optional<QString>("https://b") : std::nullopt);
    }
}

QTEST_MAIN(GuiPromptsTest)
#include "gui_prompts_guitest.moc"
