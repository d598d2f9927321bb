#include "VellumlineHardening/FileAccess.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace vellumline;

class FileAccess : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase() {
        if (afterwards(nullptr, [] { return true; }) == Answer::notInForce)
            QSKIP("this kernel has no Landlock");
    }
    void init() {
        QVERIFY(folder_.isValid());
        for (const char* name : {"inside", "outside"})
            QVERIFY(QDir(folder_.path()).mkpath(QLatin1String(name)));
        write("outside/before");
    }

    void onlyInTheFolderIsAnythingWritten() {
        QCOMPARE(afterwards("inside",
                            [this] { return write("inside/file") && QFile::remove(path("inside/file")); }),
                 Answer::yes);
        QCOMPARE(afterwards("inside", [this] { return write("outside/file"); }), Answer::no);
        QCOMPARE(afterwards("inside", [this] { return write("outside/before"); }), Answer::no);
        QCOMPARE(afterwards("inside", [this] { return QFile::remove(path("outside/before")); }), Answer::no);
        QCOMPARE(afterwards("inside", [this] { return QDir().mkdir(path("outside/folder")); }), Answer::no);
        QCOMPARE(afterwards("inside", [this] { return QFile::link(path("outside"), path("outside/link")); }),
                 Answer::no);
    }

    void withoutAFolderNothingIs() {
        QCOMPARE(afterwards(nullptr, [this] { return write("inside/file"); }), Answer::no);
    }

    void readingStaysAsItWas() {
        QCOMPARE(afterwards("inside", [this] { return QFile(path("outside/before")).open(QFile::ReadOnly); }),
                 Answer::yes);
        QCOMPARE(
            afterwards("inside", [] { return QFile(QStringLiteral("/etc/passwd")).open(QFile::ReadOnly); }),
            Answer::yes);
    }

    void threadsThatComeLaterAreHeldToItToo() {
        const auto inAThread = [this] {
            bool written = false;
            std::thread([&] { written = write("outside/file"); }).join();
            return written;
        };
        QCOMPARE(afterwards("inside", inAThread), Answer::no);
    }

    void aFolderThatIsNotThereIsNotTakenForAllowed() {
        QCOMPARE(afterwards("missing", [] { return true; }), Answer::notInForce);
    }

  private:
    enum class Answer { no, yes, notInForce };

    QString path(const char* name) const { return folder_.filePath(QLatin1String(name)); }
    bool write(const char* name) const {
        QFile file(path(name));
        return file.open(QFile::WriteOnly) && file.write("x") == 1;
    }
    /// Whether this can be done once writes are kept to the folder, in a process of its own.
    template<typename Attempt> Answer afterwards(const char* folder, Attempt attempt) const {
        const std::string allowed = folder ? path(folder).toStdString() : std::string();
        const pid_t child = fork();
        if (child == 0)
            _exit(static_cast<int>(!keepWritesTo(allowed) ? Answer::notInForce
                                   : attempt()            ? Answer::yes
                                                          : Answer::no));
        int status = 0;
        waitpid(child, &status, 0);
        return static_cast<Answer>(WEXITSTATUS(status));
    }

    QTemporaryDir folder_;
};

QTEST_GUILESS_MAIN(FileAccess)
#include "tst_fileaccess.moc"
