#include "Vellumline/TokenStore.h"
#include "fakes/FakeKeychain.h"
#include "fakes/SignedInService.h"

#include <QCoroTask>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <sys/stat.h>

using namespace vellumline;
using Status = Keychain::Status;

namespace {

const QString readCall = QStringLiteral("copyMatching com.kelthorne.vellumline.session session");
const QString updateCall = QStringLiteral("update com.kelthorne.vellumline.session session");
const QString addCall = QStringLiteral("add com.kelthorne.vellumline.session session");
const QString removeCall = QStringLiteral("remove com.kelthorne.vellumline.session session");
const QString removeLegacyCall = QStringLiteral("remove com.kelthorne.vellumline accessToken");
const FakeKeychain::Name item{QStringLiteral("com.kelthorne.vellumline.session"), QStringLiteral("session")};
const FakeKeychain::Name legacyItem{QStringLiteral("com.kelthorne.vellumline"),
                                    QStringLiteral("accessToken")};

using MaybeSession = std::optional<AuthSession>;

} // namespace

class TokenStoreTest : public QObject {
    Q_OBJECT

  private:
    std::unique_ptr<QTemporaryDir> folder_;
    std::unique_ptr<FakeKeychain> keychain_;
    QString legacyFile_;

    static MaybeSession read(TokenStore& store) { return QCoro::waitFor(store.session()); }
    static void set(TokenStore& store, const MaybeSession& session) {
        QCoro::waitFor(store.setSession(session));
    }
    void writeLegacyFile(const QByteArray& bytes) const {
        QFile file(legacyFile_);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }
    const AuthSession one_ = sessionWith(QStringLiteral("token-1"));
    const AuthSession two_ = sessionWith(QStringLiteral("token-2"), QStringLiteral("refresh-2"));

  private Q_SLOTS:
    void init() {
        folder_ = std::make_unique<QTemporaryDir>();
        keychain_ = std::make_unique<FakeKeychain>();
        legacyFile_ = folder_->filePath(QStringLiteral("session.json"));
    }

    void aFirstLaunchHasNoSessionAndDeletesTheLegacyItemOnce() {
        TokenStore store(*keychain_, legacyFile_);
        QCOMPARE(read(store), MaybeSession());
        QCOMPARE(keychain_->calls, QStringList({readCall, removeLegacyCall}));
        QCOMPARE(read(store), MaybeSession());
        QCOMPARE(keychain_->calls.size(), 2);
    }

    void aStoredSessionIsReadOnceAndThenAnsweredWithoutSuspending() {
        keychain_->items.insert(item, {one_.toStoredJson()});
        TokenStore store(*keychain_, legacyFile_);
        QCOMPARE(read(store), MaybeSession(one_));
        QCoro::Task<MaybeSession> again = store.session();
        QVERIFY(again.isReady());
        QCOMPARE(QCoro::waitFor(again), MaybeSession(one_));
        QCOMPARE(keychain_->calls, QStringList({readCall}));
    }

    void firstReadsThatOverlapMakeOneKeychainRead() {
        keychain_->items.insert(item, {one_.toStoredJson()});
        keychain_->hold();
        TokenStore store(*keychain_, legacyFile_);
        std::vector<QCoro::Task<MaybeSession>> reads;
        for (int count = 0; count < 10; ++count)
            reads.push_back(store.session());
        QCOMPARE(keychain_->calls, QStringList({readCall}));
        keychain_->release();
        for (QCoro::Task<MaybeSession>& task : reads)
            QCOMPARE(QCoro::waitFor(task), MaybeSession(one_));
        QCOMPARE(keychain_->calls.size(), 1);
    }

    void aLegacyFileIsMovedToTheKeychain() {
        writeLegacyFile(one_.toStoredJson());
        keychain_->items.insert(legacyItem, {"old"});
        TokenStore store(*keychain_, legacyFile_);
        QCOMPARE(read(store), MaybeSession(one_));
        QCOMPARE(keychain_->calls, QStringList({readCall, removeLegacyCall, updateCall, addCall}));
        QVERIFY(!QFile::exists(legacyFile_));
        QVERIFY(!keychain_->items.contains(legacyItem));
        QCOMPARE(AuthSession::fromStoredJson(keychain_->items.value(item).data), MaybeSession(one_));
        QCOMPARE(read(store), MaybeSession(one_));
        QVERIFY(!store.isWriting());
    }

    void anUnreadableLegacyFileStaysAndMeansNoSession() {
        writeLegacyFile("{\"accessToken\": 7");
        TokenStore store(*keychain_, legacyFile_);
        QCOMPARE(read(store), MaybeSession());
        QVERIFY(QFile::exists(legacyFile_));
        QCOMPARE(keychain_->calls, QStringList({readCall, removeLegacyCall}));
    }

    void aLegacyPathThatIsNoPlainFileIsNotOpened() {
        QCOMPARE(::mkfifo(QFile::encodeName(legacyFile_).constData(), 0600), 0);
        TokenStore store(*keychain_, legacyFile_);
        // Opening the pipe would wait for a writer for ever.
        QCOMPARE(read(store), MaybeSession());
    }

    void aKeychainItemThatIsNoSessionFallsBackToTheMigration_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("the item is not JSON") << QByteArray("\xFF\x00 garbage");
        QTest::newRow("the item is a JSON array") << QByteArray("[1,2]");
        QTest::newRow("the item is an object without tokens") << QByteArray("{}");
        QTest::newRow("the item is empty") << QByteArray();
    }
    void aKeychainItemThatIsNoSessionFallsBackToTheMigration() {
        QFETCH(QByteArray, bytes);
        keychain_->items.insert(item, {bytes});
        writeLegacyFile(one_.toStoredJson());
        TokenStore store(*keychain_, legacyFile_);
        QCOMPARE(read(store), MaybeSession(one_));
        QCOMPARE(keychain_->calls, QStringList({readCall, removeLegacyCall, updateCall}));
        QVERIFY(!QFile::exists(legacyFile_));
    }

    void writingUpdatesAnItemInPlace() {
        keychain_->items.insert(item, {one_.toStoredJson()});
        TokenStore store(*keychain_, legacyFile_);
        set(store, two_);
        QCOMPARE(keychain_->calls, QStringList({updateCall}));
        QCOMPARE(AuthSession::fromStoredJson(keychain_->items.value(item).data), MaybeSession(two_));
    }

    void writingAddsAnItemThatIsNotThereForThisDeviceAfterTheFirstUnlock() {
        TokenStore store(*keychain_, legacyFile_);
        set(store, one_);
        QCOMPARE(keychain_->calls, QStringList({updateCall, addCall}));
        QCOMPARE(keychain_->items.value(item).accessible,
                 Keychain::Accessible::afterFirstUnlockThisDeviceOnly);
    }

    void erasingRemovesItemAndLegacyFileAndIsRememberedWithoutAskingAgain() {
        keychain_->items.insert(item, {one_.toStoredJson()});
        TokenStore store(*keychain_, legacyFile_);
        QCOMPARE(read(store), MaybeSession(one_));
        writeLegacyFile(two_.toStoredJson());
        set(store, std::nullopt);
        QVERIFY(keychain_->items.isEmpty());
        QVERIFY(!QFile::exists(legacyFile_));
        keychain_->calls.clear();
        QCOMPARE(read(store), MaybeSession());
        QVERIFY(keychain_->calls.isEmpty());
    }

    void aSetSessionIsAnsweredBeforeTheKeychainHasTakenIt() {
        keychain_->hold();
        TokenStore store(*keychain_, legacyFile_);
        QCoro::Task<void> writing = store.setSession(one_);
        QVERIFY(store.isWriting());
        QCoro::Task<MaybeSession> session = store.session();
        QVERIFY(session.isReady());
        QCOMPARE(QCoro::waitFor(session), MaybeSession(one_));
        QVERIFY(!writing.isReady());
        keychain_->release();
        QCoro::waitFor(writing);
        QVERIFY(!store.isWriting());
    }

    void writesReachTheKeychainInTheirOrderOneAtATime() {
        keychain_->hold();
        TokenStore store(*keychain_, legacyFile_);
        store.setSession(one_);
        store.setSession(std::nullopt);
        QCoro::Task<void> last = store.setSession(two_);
        QCOMPARE(keychain_->calls, QStringList({updateCall}));
        keychain_->release();
        QCoro::waitFor(last);
        QCOMPARE(keychain_->calls, QStringList({updateCall, addCall, removeCall, updateCall, addCall}));
        QCOMPARE(AuthSession::fromStoredJson(keychain_->items.value(item).data), MaybeSession(two_));
    }

    void aSessionThatIsSetDuringTheFirstReadWins() {
        keychain_->items.insert(item, {one_.toStoredJson()});
        keychain_->hold();
        TokenStore store(*keychain_, legacyFile_);
        QCoro::Task<MaybeSession> reading = store.session();
        QCoro::Task<void> writing = store.setSession(two_);
        QCOMPARE(keychain_->calls, QStringList({readCall}));
        keychain_->release();
        QCOMPARE(QCoro::waitFor(reading), MaybeSession(two_));
        QCoro::waitFor(writing);
        QCOMPARE(read(store), MaybeSession(two_));
        QCOMPARE(AuthSession::fromStoredJson(keychain_->items.value(item).data), MaybeSession(two_));
    }

    void signingOutDuringTheMigrationLeavesNothingBehind() {
        writeLegacyFile(one_.toStoredJson());
        keychain_->hold();
        TokenStore store(*keychain_, legacyFile_);
        QCoro::Task<MaybeSession> reading = store.session();
        QVERIFY(keychain_->releaseOne());
        QVERIFY(keychain_->releaseOne());
        QCOMPARE(keychain_->calls.last(), updateCall);
        QCoro::Task<void> erasing = store.setSession(std::nullopt);
        keychain_->release();
        QCoro::waitFor(erasing);
        QCOMPARE(QCoro::waitFor(reading), MaybeSession());
        QVERIFY(keychain_->items.isEmpty());
        QVERIFY(!QFile::exists(legacyFile_));
    }

    void aStoreOutOfReachIsSignedOutAndIsReadAgainAtTheNextCall_data() {
        QTest::addColumn<Status>("status");
        QTest::newRow("the keyring is locked") << Status::locked;
        QTest::newRow("the keyring does not answer") << Status::unavailable;
    }
    void aStoreOutOfReachIsSignedOutAndIsReadAgainAtTheNextCall() {
        QFETCH(Status, status);
        keychain_->items.insert(item, {one_.toStoredJson()});
        keychain_->condition = status;
        TokenStore store(*keychain_, legacyFile_);
        QCOMPARE(read(store), MaybeSession());
        QCOMPARE(read(store), MaybeSession());
        QCOMPARE(keychain_->calls, QStringList({readCall, readCall}));
        keychain_->condition = Status::success;
        QCOMPARE(read(store), MaybeSession(one_));
        QCOMPARE(read(store), MaybeSession(one_));
        QCOMPARE(keychain_->calls.size(), 3);
    }

    void aLegacyFileBehindALockedKeyringIsUsedAndMigratedOnceItIsUnlocked() {
        writeLegacyFile(one_.toStoredJson());
        keychain_->condition = Status::locked;
        TokenStore store(*keychain_, legacyFile_);
        QCOMPARE(read(store), MaybeSession(one_));
        QVERIFY(QFile::exists(legacyFile_));
        keychain_->condition = Status::success;
        QCOMPARE(read(store), MaybeSession(one_));
        QVERIFY(!QFile::exists(legacyFile_));
        QVERIFY(keychain_->items.contains(item));
    }

    void aLegacyFileStaysWhenTheKeyringIsLockedBeforeTheWrite() {
        writeLegacyFile(one_.toStoredJson());
        keychain_->updateStatus = Status::locked;
        TokenStore store(*keychain_, legacyFile_);
        QCOMPARE(read(store), MaybeSession(one_));
        QVERIFY(QFile::exists(legacyFile_));
        keychain_->updateStatus.reset();
        QCOMPARE(read(store), MaybeSession(one_));
        QTRY_VERIFY(!store.isWriting());
        QVERIFY(keychain_->items.contains(item));
        QVERIFY(!QFile::exists(legacyFile_));
    }

    void whatALockedKeyringCouldNotTakeIsOfferedAgain_data() {
        QTest::addColumn<bool>("signOut");
        QTest::newRow("a renewed session is stored after all") << false;
        QTest::newRow("a session that was ended does not come back") << true;
    }
    void whatALockedKeyringCouldNotTakeIsOfferedAgain() {
        QFETCH(bool, signOut);
        keychain_->items.insert(item, {one_.toStoredJson()});
        TokenStore store(*keychain_, legacyFile_);
        QCOMPARE(read(store), MaybeSession(one_));
        keychain_->condition = Status::locked;
        const MaybeSession next = signOut ? MaybeSession() : MaybeSession(two_);
        set(store, next);
        QCOMPARE(AuthSession::fromStoredJson(keychain_->items.value(item).data), MaybeSession(one_));
        QCOMPARE(read(store), next);
        QTRY_VERIFY(!store.isWriting());

        keychain_->condition = Status::success;
        QCoro::Task<MaybeSession> session = store.session();
        QVERIFY(session.isReady());
        QCOMPARE(QCoro::waitFor(session), next);
        QTRY_VERIFY(!store.isWriting());
        TokenStore restarted(*keychain_, legacyFile_);
        QCOMPARE(read(restarted), next);
        // Once it has been taken, nobody asks any more.
        keychain_->calls.clear();
        QCOMPARE(read(store), next);
        QVERIFY(keychain_->calls.isEmpty());
    }

    void aRestartFindsTheSessionThatWasSet() {
        QCoro::waitFor(TokenStore(*keychain_, legacyFile_).setSession(one_));
        TokenStore restarted(*keychain_, legacyFile_);
        QCOMPARE(read(restarted), MaybeSession(one_));
    }

    void aWriteThatFailsKeepsTheSessionInMemory() {
        keychain_->condition = Status::unavailable;
        TokenStore store(*keychain_, legacyFile_);
        set(store, one_);
        QCOMPARE(read(store), MaybeSession(one_));
        QVERIFY(keychain_->items.isEmpty());
        QTRY_VERIFY(!store.isWriting());
    }
};

QTEST_GUILESS_MAIN(TokenStoreTest)
#include "tst_tokenstore.moc"
