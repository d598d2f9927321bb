#include "Vellumline/Platform/QtHTTPTransport.h"
#include "Vellumline/Updates.h"
#include "fakes/ModelOnFakes.h"
#include "fakes/SignedFeed.h"
#include "tests/app/VisibleTexts.h"

#include <QFile>
#include <QLabel>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>

using namespace vellumline;
using namespace std::chrono_literals;

namespace {

const QString feedAddress = QStringLiteral("https://example.org/feed.xml");

/// The updates of version 1.2.0 on fakes.
struct UpdatesOnFakes {
    explicit UpdatesOnFakes(const QString& address = feedAddress)
        : updates(UpdateFeed::resolve(address, publisher.publicKey()), QStringLiteral("1.2.0"), model.model(),
                  transport, model.workspace, clock) {
        updates.start();
    }
    /// Every task comes to its end.
    ~UpdatesOnFakes() {
        clock.advance(1h);
        for (int i = 0; i < 4; ++i) {
            for (qsizetype request = 0; request < transport.requests.size(); ++request)
                transport.answer(request, TransportError::other);
            QTest::qWait(0);
        }
    }
    UpdatesOnFakes(const UpdatesOnFakes&) = delete;
    UpdatesOnFakes& operator=(const UpdatesOnFakes&) = delete;

    void queueSigned(const QByteArray& document) {
        transport.queue(200, document);
        transport.queue(200, publisher.sign(document));
    }
    UpdateDialog* dialog() const { return updates.controller()->dialog(); }
    /// Presses the command and waits for the answer in the dialog.
    void check() {
        updates.checkForUpdates();
        ModelOnFakes::waitUntil([&] { return dialog() != nullptr && !dialog()->isChecking(); });
    }
    /// The labels that are to be seen, in their order.
    QStringList texts() const {
        QStringList result;
        for (const QWidget* each : test::visibleTexts(dialog())) {
            if (qobject_cast<const QLabel*>(each))
                result.append(test::textOf(each));
        }
        return result;
    }
    QStringList buttons() const {
        QStringList result;
        for (const QWidget* each : test::visibleTexts(dialog())) {
            if (qobject_cast<const QPushButton*>(each))
                result.append(test::textOf(each));
        }
        return result;
    }
    QPushButton* button(const char* text) const {
        return qobject_cast<QPushButton*>(test::button(dialog(), QLatin1String(text)));
    }
    /// Lets whatever is due happen.
    static void settle() {
        for (int i = 0; i < 5; ++i)
            QTest::qWait(1);
    }

    Publisher publisher;
    ModelOnFakes model;
    FakeHTTPTransport transport;
    FakeClock clock;
    Updates updates;
};

qsizetype openDialogs() {
    return std::ranges::count_if(QApplication::topLevelWidgets(), [](const QWidget* widget) {
        return qobject_cast<const UpdateDialog*>(widget) != nullptr && widget->isVisible();
    });
}

/// Runs the signing script; answers what it printed, or nothing when it failed.
std::optional<QByteArray> signAppcast(const QStringList& arguments) {
    QProcess script;
    script.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    script.start(QFINDTESTDATA("../../scripts/sign-appcast.py"), arguments);
    if (!script.waitForFinished() || script.exitStatus() != QProcess::NormalExit || script.exitCode() != 0)
        return std::nullopt;
    return script.readAllStandardOutput().trimmed();
}

void writeFile(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), bytes.size());
}

} // namespace

class UpdatesTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void aBuildWithoutAFeedSaysSoInTheStatusLine_data() {
        QTest::addColumn<QString>("address");
        QTest::addColumn<QString>("key");
        const QString key = Publisher().publicKey();
        QTest::newRow("neither") << QString() << QString();
        QTest::newRow("no key") << feedAddress << QString();
        QTest::newRow("no address") << QString() << key;
        QTest::newRow("plain HTTP") << QStringLiteral("http://example.org/feed.xml") << key;
        QTest::newRow("a key that is too short") << feedAddress << key.mid(4);
        QTest::newRow("no file") << QStringLiteral("https://example.org") << key;
    }
    void aBuildWithoutAFeedSaysSoInTheStatusLine() {
        QFETCH(const QString, address);
        QFETCH(const QString, key);
        ModelOnFakes fakes;
        FakeHTTPTransport transport;
        FakeClock clock;
        Updates updates(UpdateFeed::resolve(address, key), QStringLiteral("1.2.0"), fakes.model(), transport,
                        fakes.workspace, clock);
        updates.start();
        QVERIFY(updates.controller() == nullptr);
        QCOMPARE(clock.pendingSleeps(), 0);
        updates.checkForUpdates();
        QCOMPARE(fakes.model().statusText(), std::optional(QStringLiteral("This build has no update feed.")));
        QCOMPARE(transport.requests.size(), 0);
    }

    void beforeTheStartTheCommandDoesNothing() {
        for (const QString& address : {QString(feedAddress), QString()}) {
            ModelOnFakes fakes;
            FakeHTTPTransport transport;
            FakeClock clock;
            Updates updates(UpdateFeed::resolve(address, Publisher().publicKey()), QStringLiteral("1.2.0"),
                            fakes.model(), transport, fakes.workspace, clock);
            updates.checkForUpdates();
            QVERIFY(updates.controller() == nullptr);
            QVERIFY(!fakes.model().statusText());
            QCOMPARE(transport.requests.size(), 0);
            QCOMPARE(openDialogs(), 0);
        }
    }

    void onlyALoopbackAddressOfTheEnvironmentCounts() {
        const QString key = Publisher().publicKey();
        const QString otherKey = Publisher('o').publicKey();
        const QString local = QStringLiteral("http://127.0.0.1:9/feed.xml");
        QCOMPARE(UpdateFeed::resolve({}, {}, local, key)->url, QUrl(local));
        const QByteArray document = "feed";
        const auto replaced = UpdateFeed::resolve(feedAddress, key, local, otherKey);
        QVERIFY(replaced->key.verifies(document, Publisher('o').sign(document)));
        QVERIFY(!replaced->key.verifies(document, Publisher().sign(document)));
        QVERIFY(!UpdateFeed::resolve(feedAddress, key, local));
        const auto ignored =
            UpdateFeed::resolve(feedAddress, key, QStringLiteral("https://evil.example/feed.xml"), otherKey);
        QCOMPARE(ignored->url, QUrl(feedAddress));
        QVERIFY(ignored->key.verifies(document, Publisher().sign(document)));
        QVERIFY(!UpdateFeed::resolve({}, {}, QStringLiteral("https://evil.example/feed.xml"), otherKey));
    }

    void theSignatureLiesBesideTheFeed() {
        const auto at = [](const char* address) {
            return UpdateFeed::resolve(QLatin1String(address), Publisher().publicKey())
                ->signatureURL()
                .toString(QUrl::FullyEncoded);
        };
        QCOMPARE(at("https://example.org/feed.xml"), QStringLiteral("https://example.org/feed.xml.sig"));
        QCOMPARE(at("https://example.org/a%2Fb%20c?channel=beta"),
                 QStringLiteral("https://example.org/a%2Fb%20c.sig?channel=beta"));
    }

    void theKeyVerifiesAsPublished() { // RFC 8032 section 7.1, test 2
        const auto base64 = [](const char* hex) { return QByteArray::fromHex(hex).toBase64(); };
        const auto key =
            UpdateKey::fromBase64(base64("3d4017c3e843895a92b70aa74d1b7ebc9c982ccf2ec4968cc0cd55f12af4660c"));
        const QByteArray signature =
            base64("92a009a9f0d4cab8720e820b5f642540a2b27b5416503f8fb3762223ebdb69da"
                   "085ac1e43e15996e458f3613d0f11d8c387b2eaeb4302aeeb00d291612bb0c00");
        QVERIFY(key);
        QVERIFY(key->verifies("r", signature));
        QVERIFY(key->verifies("r", '\n' + signature + "\r\n"));
        QVERIFY(!key->verifies("s", signature));
        QVERIFY(!key->verifies("r\n", signature));
        QVERIFY(!key->verifies({}, signature));
        QVERIFY(!key->verifies("r", {}));
        QVERIFY(!key->verifies("r", signature + signature));
        QVERIFY(!key->verifies("r", QByteArray::fromBase64(signature)));
        // A key of small order would let one signature fit many documents.
        const auto zero = UpdateKey::fromBase64(QByteArray(32, 0).toBase64());
        QVERIFY(zero && !zero->verifies("r", QByteArray(64, 0).toBase64()));
    }

    void aNewerVersionIsShownWithItsNotesAndItsPage() {
        UpdatesOnFakes f;
        f.queueSigned(feedWith("1.10.0"));
        f.check();
        const QStringList texts = {QStringLiteral("Vellumline 1.10.0 is available"),
                                   QStringLiteral("A calmer panel"),
                                   QStringLiteral("Published 3 March 2027. You have version 1.2.0.")};
        QCOMPARE(f.texts(), texts);
        const auto* notes = f.dialog()->findChild<QPlainTextEdit*>();
        QVERIFY(notes->isVisible() && notes->isReadOnly());
        QCOMPARE(notes->toPlainText(), QStringLiteral("- Faster\n- Quieter"));
        QCOMPARE(f.buttons(), QStringList({QStringLiteral("Later"), QStringLiteral("Open download page")}));
        QVERIFY(f.button("Open download page")->isDefault());
        f.button("Open download page")->click();
        QVERIFY(f.dialog() == nullptr);
        QCOMPARE(f.model.workspace.openedURLs(), {QUrl(QStringLiteral("https://example.org/download"))});
        QCOMPARE(openDialogs(), 0);
        QCOMPARE(f.transport.requests.size(), 2); // nothing else was fetched
    }

    void aVersionWithoutAPageIsOfferedAsItsFile() {
        UpdatesOnFakes f;
        f.queueSigned(feedWith("1.3", {}));
        f.check();
        QCOMPARE(f.buttons(), QStringList({QStringLiteral("Later"), QStringLiteral("Download")}));
        f.button("Download")->click();
        QCOMPARE(f.model.workspace.openedURLs(),
                 {QUrl(QStringLiteral("https://example.org/vellumline.deb"))});
    }

    void laterOpensNothing() {
        UpdatesOnFakes f;
        f.queueSigned(feedWith("1.3"));
        f.check();
        f.button("Later")->click();
        QVERIFY(f.dialog() == nullptr);
        QVERIFY(f.model.workspace.openedURLs().isEmpty());
    }

    void theRequestsAreBoundedAndCarryNothing() {
        UpdatesOnFakes f;
        f.queueSigned(feedWith("1.2.0"));
        f.check();
        QCOMPARE(f.transport.requests.size(), 2);
        QCOMPARE(f.transport.requests.at(0).url, QUrl(feedAddress));
        QCOMPARE(f.transport.requests.at(1).url, QUrl(feedAddress + QStringLiteral(".sig")));
        for (const HTTPRequest& request : std::as_const(f.transport.requests)) {
            QCOMPARE(request.timeout, 10s);
            QCOMPARE(request.method, QByteArray("GET"));
            QVERIFY(request.headers.isEmpty() && request.body.isEmpty());
        }
    }

    void whatIsNotNewerIsTheNewestVersion_data() {
        QTest::addColumn<QByteArray>("version");
        QTest::newRow("equal") << QByteArray("1.2.0");
        QTest::newRow("equal, written shorter") << QByteArray("1.2");
        QTest::newRow("older") << QByteArray("1.1.9");
        QTest::newRow("what came before this release") << QByteArray("1.2.0-rc.3");
        QTest::newRow("unreadable") << QByteArray("two");
    }
    void whatIsNotNewerIsTheNewestVersion() {
        QFETCH(const QByteArray, version);
        UpdatesOnFakes f;
        f.queueSigned(feedWith(version));
        f.check();
        QCOMPARE(f.texts(), QStringList({QStringLiteral("You have the newest version"),
                                         QStringLiteral("Vellumline 1.2.0 is the newest version.")}));
        QCOMPARE(f.buttons(), QStringList{QStringLiteral("OK")});
        QVERIFY(f.button("OK")->isDefault());
    }

    void whyThereIsNoAnswerIsSaid_data() {
        QTest::addColumn<int>("failingRequest");
        QTest::addColumn<int>("status"); // or minus a TransportError, minus one
        QTest::addColumn<QString>("detail");
        const auto error = [](TransportError each) { return -1 - static_cast<int>(each); };
        for (const int request : {0, 1}) {
            const auto row = [&](const char* name, int status, const char* detail) {
                QTest::addRow("%s, request %d", name, request)
                    << request << status << QString::fromLatin1(detail);
            };
            row("offline", error(TransportError::notConnectedToInternet), "cannot be reached");
            row("no such host", error(TransportError::cannotFindHost), "cannot be reached");
            row("timed out", error(TransportError::timedOut), "did not answer in time");
            row("TLS refused", error(TransportError::other), "cannot be read");
            row("not HTTP", error(TransportError::notHTTP), "cannot be read");
            row("out of order", 503, "HTTP 503");
        }
        QTest::newRow("no feed") << 0 << 404 << QStringLiteral("HTTP 404");
        QTest::newRow("an empty answer") << 0 << 204 << QStringLiteral("HTTP 204");
    }
    void whyThereIsNoAnswerIsSaid() {
        QFETCH(const int, failingRequest);
        QFETCH(const int, status);
        QFETCH(const QString, detail);
        UpdatesOnFakes f;
        if (failingRequest == 1)
            f.transport.queue(200, feedWith("1.3"));
        if (status < 0)
            f.transport.queue(static_cast<TransportError>(-1 - status));
        else
            f.transport.queue(status);
        f.check();
        QCOMPARE(f.texts().size(), 2);
        QCOMPARE(f.texts().at(0), QStringLiteral("Updates could not be looked for"));
        QVERIFY2(f.texts().at(1).contains(detail), qPrintable(f.texts().at(1)));
        QCOMPARE(f.buttons(), QStringList{QStringLiteral("OK")});
    }

    void aFeedThatIsNotThePublishersIsNotUsed_data() {
        QTest::addColumn<QByteArray>("signature");
        QTest::addColumn<int>("status");
        const QByteArray feed = feedWith("9.0");
        const QByteArray good = Publisher().sign(feed);
        QTest::newRow("another key") << Publisher('x').sign(feed) << 200;
        QTest::newRow("another document") << Publisher().sign(feedWith("9.1")) << 200;
        QTest::newRow("no signature") << QByteArray("<html>Not found</html>") << 404;
        QTest::newRow("a signature with the status of an error") << good << 404;
        QTest::newRow("an empty one") << QByteArray() << 200;
        QTest::newRow("not Base64") << QByteArray("-----BEGIN SIGNATURE-----") << 200;
        QTest::newRow("not in Base64") << QByteArray::fromBase64(good.trimmed()) << 200;
        QTest::newRow("one bit is wrong")
            << QByteArray(good).replace(3, 1, good.at(3) == 'A' ? "B" : "A") << 200;
    }
    void aFeedThatIsNotThePublishersIsNotUsed() {
        QFETCH(const QByteArray, signature);
        QFETCH(const int, status);
        UpdatesOnFakes f;
        f.transport.queue(200, feedWith("9.0"));
        f.transport.queue(status, signature);
        f.check();
        QCOMPARE(f.texts().at(0), QStringLiteral("The update feed could not be verified"));
        QVERIFY(f.texts().at(1).contains(QStringLiteral("Nothing was installed.")));
        QCOMPARE(f.buttons(), QStringList{QStringLiteral("OK")});
    }

    void aChangedByteOfTheFeedIsNoticed() {
        UpdatesOnFakes f;
        const QByteArray feed = feedWith("1.2.0");
        f.transport.queue(200, QByteArray(feed).replace("1.2.0", "9.2.0"));
        f.transport.queue(200, f.publisher.sign(feed));
        f.check();
        QCOMPARE(f.texts().at(0), QStringLiteral("The update feed could not be verified"));
    }

    void aSignedDocumentThatIsNoFeedIsNotValid_data() {
        QTest::addColumn<QByteArray>("document");
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("garbage") << QByteArray("\x00\xff garbage", 10);
        QTest::newRow("a file over plain HTTP")
            << feedWith("1.3").replace("https://example.org/vellumline.deb", "http://example.org/v.deb");
        QTest::newRow("a page of this machine")
            << feedWith("1.3").replace("https://example.org/download", "file:///etc/passwd");
        QTest::newRow("too large") << QByteArray(Appcast::largestDocument + 1, ' ');
    }
    void aSignedDocumentThatIsNoFeedIsNotValid() {
        QFETCH(const QByteArray, document);
        UpdatesOnFakes f;
        f.queueSigned(document);
        f.check();
        QCOMPARE(f.texts().at(0), QStringLiteral("The update feed is not valid"));
    }

    void theDialogIsThereWhileTheFeedIsLookedAt() {
        UpdatesOnFakes f;
        f.transport.queueHeld();
        f.updates.checkForUpdates();
        QVERIFY(f.dialog()->isVisible() && f.dialog()->isChecking());
        QVERIFY(!f.dialog()->isModal());
        QCOMPARE(f.texts(), QStringList{QStringLiteral("Looking for updates…")});
        QCOMPARE(f.buttons(), QStringList{QStringLiteral("Cancel")});
    }

    void aSecondPressBringsTheDialogToTheFront() {
        UpdatesOnFakes f;
        f.transport.queueHeld();
        f.transport.queue(404);
        f.updates.checkForUpdates();
        UpdateDialog* dialog = f.dialog();
        f.updates.checkForUpdates();
        QCOMPARE(f.dialog(), dialog);
        QCOMPARE(f.transport.requests.size(), 1);
        f.transport.answer(0, TransportError::timedOut);
        UpdatesOnFakes::settle();
        QVERIFY(!dialog->isChecking());
        f.updates.checkForUpdates();
        QCOMPARE(f.dialog(), dialog);
        QCOMPARE(f.texts().at(0), QStringLiteral("Updates could not be looked for"));
        QCOMPARE(f.transport.requests.size(), 1);
        QCOMPARE(openDialogs(), 1);
        dialog->showMinimized();
        f.updates.checkForUpdates();
        QVERIFY(dialog->isVisible() && !dialog->isMinimized());
    }

    void closedTheNextPressLooksAgain() {
        UpdatesOnFakes f;
        f.queueSigned(feedWith("1.2.0"));
        f.check();
        f.button("OK")->click();
        f.queueSigned(feedWith("1.3"));
        f.check();
        QCOMPARE(f.texts().at(0), QStringLiteral("Vellumline 1.3 is available"));
        QCOMPARE(openDialogs(), 1);
    }

    void aCancelledLookSaysNothingMore() {
        UpdatesOnFakes f;
        f.transport.queueHeld();
        f.updates.checkForUpdates();
        f.button("Cancel")->click();
        QVERIFY(f.dialog() == nullptr);
        f.queueSigned(feedWith("1.2.0"));
        f.check(); // another look, while the first is still unanswered
        QCOMPARE(f.texts().at(0), QStringLiteral("You have the newest version"));
        const QByteArray late = feedWith("9.0");
        f.transport.queue(200, f.publisher.sign(late));
        f.transport.answer(0, 200, late);
        UpdatesOnFakes::settle();
        QCOMPARE(f.texts().at(0), QStringLiteral("You have the newest version"));
    }

    void escapeAndTheCloseButtonCloseTheDialog() {
        UpdatesOnFakes f;
        f.queueSigned(feedWith("1.3"));
        f.check();
        QTest::keyClick(f.dialog(), Qt::Key_Escape);
        QVERIFY(f.dialog() == nullptr);
        f.transport.queueHeld();
        f.updates.checkForUpdates();
        f.dialog()->close();
        QVERIFY(f.dialog() == nullptr);
        UpdatesOnFakes::settle();
        QCOMPARE(openDialogs(), 0);
        QVERIFY(f.model.workspace.openedURLs().isEmpty());
    }

    void returnPressesTheButtonWithTheFocus() {
        UpdatesOnFakes f;
        f.queueSigned(feedWith("1.3"));
        f.check();
        QVERIFY(QTest::qWaitForWindowActive(f.dialog()));
        f.button("Later")->setFocus();
        QTest::keyClick(f.button("Later"), Qt::Key_Return);
        QVERIFY(f.dialog() == nullptr && f.model.workspace.openedURLs().isEmpty());
        f.queueSigned(feedWith("1.3"));
        f.check();
        QTest::keyClick(f.dialog()->findChild<QPlainTextEdit*>(), Qt::Key_Return);
        QCOMPARE(f.model.workspace.openedURLs().size(), 1);
    }

    void aScreenReaderHearsWhatIsShown() {
        UpdatesOnFakes f;
        f.queueSigned(feedWith("1.3"));
        f.check();
        QCOMPARE(f.dialog()->accessibleName(), QStringLiteral("Vellumline 1.3 is available"));
        QVERIFY(f.dialog()->accessibleDescription().contains(QStringLiteral("You have version 1.2.0.")));
        QCOMPARE(f.dialog()->findChild<QPlainTextEdit*>()->accessibleName(), QStringLiteral("What is new"));
    }

    void theStartLooksOnceAndOnlyANewerVersionIsShown() {
        UpdatesOnFakes f;
        f.queueSigned(feedWith("1.3"));
        f.clock.advance(4999ms);
        UpdatesOnFakes::settle();
        QCOMPARE(f.transport.requests.size(), 0);
        f.clock.advance(1ms);
        ModelOnFakes::waitUntil([&] { return f.dialog() != nullptr; });
        QCOMPARE(f.texts().at(0), QStringLiteral("Vellumline 1.3 is available"));
        QVERIFY(f.dialog()->testAttribute(Qt::WA_ShowWithoutActivating));
        f.updates.checkForUpdates();
        QVERIFY(!f.dialog()->testAttribute(Qt::WA_ShowWithoutActivating));
        QCOMPARE(f.transport.requests.size(), 2);
        QCOMPARE(f.clock.pendingSleeps(), 0);
    }

    void theStartIsSilentOtherwise_data() {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("document");
        QTest::addColumn<QByteArray>("signature");
        const auto row = [](const char* name, int status, const QByteArray& document,
                            const QByteArray& signature) {
            QTest::newRow(name) << status << document << signature;
        };
        const Publisher publisher;
        row("the same version", 200, feedWith("1.2.0"), publisher.sign(feedWith("1.2.0")));
        row("an older version", 200, feedWith("1.1"), publisher.sign(feedWith("1.1")));
        row("a bad signature", 200, feedWith("9.0"), Publisher('x').sign(feedWith("9.0")));
        row("garbage", 200, "garbage", publisher.sign("garbage"));
        row("no feed", 404, {}, {});
        row("offline", 0, {}, {});
    }
    void theStartIsSilentOtherwise() {
        QFETCH(const int, status);
        QFETCH(const QByteArray, document);
        QFETCH(const QByteArray, signature);
        UpdatesOnFakes f;
        if (status == 0)
            f.transport.queue(TransportError::notConnectedToInternet);
        else
            f.transport.queue(status, document);
        f.transport.queue(200, signature);
        f.clock.advance(5s);
        ModelOnFakes::waitUntil([&] {
            return f.transport.pending() == 0 && f.transport.requests.size() == (status == 200 ? 2 : 1);
        });
        UpdatesOnFakes::settle();
        QVERIFY(f.dialog() == nullptr);
        QCOMPARE(openDialogs(), 0);
        QVERIFY(!f.model.model().statusText());
    }

    void aPressDuringTheLookOfTheStartShowsItsResult() {
        UpdatesOnFakes f;
        f.transport.queueHeld();
        f.clock.advance(5s);
        UpdatesOnFakes::settle();
        f.updates.checkForUpdates();
        QVERIFY(f.dialog()->isChecking());
        QCOMPARE(f.transport.requests.size(), 1);
        f.transport.answer(0, TransportError::timedOut);
        UpdatesOnFakes::settle();
        QCOMPARE(f.texts().at(0), QStringLiteral("Updates could not be looked for"));
        QCOMPARE(f.transport.requests.size(), 1);
    }

    void aLookOfTheUserReplacesTheOneOfTheStart() {
        UpdatesOnFakes f;
        f.queueSigned(feedWith("1.2.0"));
        f.check();
        f.clock.advance(1h);
        UpdatesOnFakes::settle();
        QCOMPARE(f.transport.requests.size(), 2);
    }

    void theProgramMayEndAtAnyMoment() {
        Publisher publisher;
        ModelOnFakes model;
        FakeHTTPTransport transport;
        FakeClock clock;
        const auto make = [&] {
            return std::make_unique<Updates>(UpdateFeed::resolve(feedAddress, publisher.publicKey()),
                                             QStringLiteral("1.2.0"), model.model(), transport,
                                             model.workspace, clock);
        };
        auto updates = make();
        updates->start();
        updates.reset(); // while the start waits
        clock.advance(5s);
        updates = make();
        transport.queueHeld();
        updates->checkForUpdates();
        updates.reset(); // with the dialog, and a request under way
        QCOMPARE(openDialogs(), 0);
        transport.queue(404);
        transport.answer(0, 200, feedWith("9.0"));
        UpdatesOnFakes::settle();
        QCOMPARE(openDialogs(), 0);
    }

    void aFeedSignedByTheScriptComesOverARealConnection() {
        QTemporaryDir folder;
        const QString key = folder.filePath(QStringLiteral("key.pem"));
        const QString feed = folder.filePath(QStringLiteral("feed.xml"));
        const auto publicKey = signAppcast({QStringLiteral("--new-key"), key});
        QVERIFY(publicKey);
        QCOMPARE(QFile::permissions(key) & (QFile::ReadGroup | QFile::ReadOther), QFile::Permissions());
        QCOMPARE(signAppcast({QStringLiteral("--key"), key}), publicKey);
        QVERIFY(!signAppcast({QStringLiteral("--new-key"), key})); // not over an old one

        // The attributes of the enclosure are the script's, too.
        const QByteArray file = "what is installed\n";
        writeFile(folder.filePath(QStringLiteral("v.deb")), file);
        const auto attributes = signAppcast({QStringLiteral("--key"), key, QStringLiteral("--file"),
                                             folder.filePath(QStringLiteral("v.deb"))});
        QVERIFY(attributes);
        QByteArray document = feedWith("1.3");
        const qsizetype begin = document.indexOf("length=");
        document.replace(begin, document.indexOf(" vellumline:version") - begin,
                         *attributes + " type=\"application/x-deb\"");
        writeFile(feed, document);
        QVERIFY(signAppcast({QStringLiteral("--key"), key, feed}));
        const auto read = Appcast::parse(document, AuthConfig::isAcceptable);
        QVERIFY(read);
        QCOMPARE(read->items.first().enclosure.length, file.size());
        const auto publisher = UpdateKey::fromBase64(*publicKey);
        QVERIFY(publisher->verifies(file, read->items.first().enclosure.signature.toBase64()));

        const FileServer server(QDir(folder.path()));
        QtHTTPTransport transport;
        ModelOnFakes fakes;
        FakeClock clock;
        Updates updates(
            UpdateFeed::resolve({}, {}, server.address("feed.xml"), QString::fromLatin1(*publicKey)),
            QStringLiteral("1.2.0"), fakes.model(), transport, fakes.workspace, clock);
        updates.start();
        const auto check = [&] {
            updates.checkForUpdates();
            UpdateDialog* dialog = updates.controller()->dialog();
            ModelOnFakes::waitUntil([&] { return !dialog->isChecking(); });
            const QString headline = dialog->accessibleName();
            dialog->close();
            return headline;
        };
        QCOMPARE(check(), QStringLiteral("Vellumline 1.3 is available"));
        writeFile(feed, QByteArray(document).replace("Faster", "faster"));
        QCOMPARE(check(), QStringLiteral("The update feed could not be verified"));
        QVERIFY(QFile::remove(feed + QStringLiteral(".sig")));
        QCOMPARE(check(), QStringLiteral("The update feed could not be verified"));
        QVERIFY(QFile::remove(feed));
        QCOMPARE(check(), QStringLiteral("Updates could not be looked for"));
        clock.advance(1h); // the look of the start comes to its end
    }

    void theScriptSignsOnlyWhatTheProgramReads_data() {
        QTest::addColumn<QByteArray>("document");
        const auto row = [](const char* name, const QByteArray& document) {
            QTest::newRow(name) << document;
        };
        row("a good feed", feedWith("1.3-beta.2"));
        row("not XML", "version 1.3");
        row("cut off", feedWith("1.3").chopped(4));
        row("a document type", "<!DOCTYPE rss>" + feedWith("1.3"));
        row("no channel", "<rss version=\"2.0\"/>");
        row("no enclosure", feedWith("1.3").replace("enclosure", "closure"));
        row("plain HTTP", feedWith("1.3").replace("https://example.org/v", "http://example.org/v"));
        row("a page over plain HTTP",
            feedWith("1.3").replace("https://example.org/d", "http://example.org/d"));
        row("no signature", feedWith("1.3").replace("vellumline:signature", "signature"));
        row("no length", feedWith("1.3").replace("length=\"10\"", "length=\"\""));
        row("no type", feedWith("1.3").replace("application/x-deb", ""));
    }
    void theScriptSignsOnlyWhatTheProgramReads() {
        QFETCH(const QByteArray, document);
        QTemporaryDir folder;
        const QString key = folder.filePath(QStringLiteral("key.pem"));
        const QString feed = folder.filePath(QStringLiteral("feed.xml"));
        QVERIFY(signAppcast({QStringLiteral("--new-key"), key}));
        writeFile(feed, document);
        const bool readable = Appcast::parse(document, AuthConfig::isAcceptable).has_value();
        QCOMPARE(signAppcast({QStringLiteral("--key"), key, feed}).has_value(), readable);
        QCOMPARE(QFile::exists(feed + QStringLiteral(".sig")), readable);
        QCOMPARE(readable, QByteArray(QTest::currentDataTag()) == "a good feed");
    }
};

QTEST_MAIN(UpdatesTest)
#include "tst_updates.moc"
