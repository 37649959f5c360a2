// A Qt widget that takes the keyboard focus and appends QKeyEvent::text() of every key press to a file, as a
// text field would insert it (Return inserts a line feed). Arguments: output file, milliseconds to spend on
// each key (a slow client). Prints "ready" once it has the focus; stops on SIGTERM.
#include <QApplication>
#include <QFile>
#include <QKeyEvent>
#include <QWidget>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

class RecordingWidget final : public QWidget {
public:
    RecordingWidget(QFile& file, std::chrono::milliseconds perKey) : output(file), delay(perKey) {
        setFocusPolicy(Qt::StrongFocus);
        resize(400, 300);
    }

protected:
    void keyPressEvent(QKeyEvent* event) override {
        const bool lineEnd = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
        output.write(lineEnd ? QByteArray("\n") : event->text().toUtf8());
        output.flush();
        std::this_thread::sleep_for(delay);
    }

    void focusInEvent(QFocusEvent*) override {
        if (!announced) {
            announced = true;
            std::fputs("ready\n", stdout);
            std::fflush(stdout);
        }
    }

private:
    QFile& output;
    std::chrono::milliseconds delay;
    bool announced = false;
};

} // namespace

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    if (argc != 3) {
        std::fputs("usage: keyferry-qt-receiver OUTPUT DELAY_MS\n", stderr);
        return 2;
    }
    QFile file(QString::fromLocal8Bit(argv[1]));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        std::fputs("cannot open the output file\n", stderr);
        return 1;
    }
    RecordingWidget widget(file, std::chrono::milliseconds(std::atoi(argv[2])));
    widget.show();
    widget.activateWindow();
    widget.setFocus();
    return QApplication::exec();
}
