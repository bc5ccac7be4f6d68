#include "model/AccountPartition.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <QFileInfo>

#include <atomic>
#include <thread>

using namespace velum;

namespace {

class AccountPartitionTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_previous = qgetenv("XDG_DATA_HOME");
        qputenv("XDG_DATA_HOME", m_data.path().toUtf8());
        AccountPartition::deactivate();
        m_base = m_data.path() + "/Velum";
        QDir().mkpath(m_base);
    }
    void TearDown() override
    {
        AccountPartition::deactivate();
        qputenv("XDG_DATA_HOME", m_previous);
    }

    QUrl baseURL() const { return QUrl::fromLocalFile(m_base); }
    QString at(const QString &relative) const { return m_base + "/" + relative; }
    bool exists(const QString &relative) const { return QFileInfo::exists(at(relative)); }

    // The old single-folder layout, as an installation from before accounts
    // would have it.
    void writeLegacyLayout()
    {
        test::writeBytes(at("state.json"), R"({"version":2})");
        test::writeBytes(at("profiles/index.json"), "[]");
        test::writeBytes(at("projects/P1/c0_probe.json"), "{}");
        test::writeBytes(at("analysis/abc.json"), "{}");
        test::writeBytes(at("profile/params.json"), "{}");
    }

    test::TempDir m_data;
    QString m_base;
    QByteArray m_previous;
};

TEST(AccountPartitionSafeName, LettersNumbersAndHyphensOfAnyScriptSurvive)
{
    using AccountPartition::safeName;
    EXPECT_EQ(safeName(u"auth0|64f1c2"), "auth0_64f1c2");
    EXPECT_EQ(safeName(u"google-oauth2|1098"), "google-oauth2_1098");
    EXPECT_EQ(safeName(u""), "_");
    EXPECT_EQ(safeName(u"a.b/c d"), "a_b_c_d");
    EXPECT_EQ(safeName(u"../.."), "_____");
    EXPECT_EQ(safeName(u"Zoë-用户-٣٤"), QString::fromUtf8("Zoë-用户-٣٤"));
    EXPECT_EQ(safeName(u"under_score"), "under_score");
    // A letter with a combining mark is one character; an emoji is one too,
    // and a letter outside the basic plane is a letter.
    EXPECT_EQ(safeName(QString::fromUtf8("e\xCC\x81")), QString::fromUtf8("e\xCC\x81"));
    EXPECT_EQ(safeName(QString::fromUtf8("a\xF0\x9F\x91\x8D\xF0\x9F\x8F\xBD" "b")), "a_b");
    EXPECT_EQ(safeName(QString::fromUtf8("\xF0\x9D\x92\x9C")), QString::fromUtf8("\xF0\x9D\x92\x9C"));
}

TEST_F(AccountPartitionTest, RootsAndTheActivePartition)
{
    EXPECT_EQ(AccountPartition::root("auth0|x", baseURL()), QUrl::fromLocalFile(at("accounts/auth0_x")));
    EXPECT_EQ(AccountPartition::root("", baseURL()), QUrl::fromLocalFile(at("accounts/_")));
    EXPECT_FALSE(AccountPartition::active());
    EXPECT_EQ(AccountPartition::storeRoot(), QUrl::fromLocalFile(at("accounts/_none")));

    AccountPartition::activate("auth0|x");
    EXPECT_EQ(AccountPartition::active(), QUrl::fromLocalFile(at("accounts/auth0_x")));
    EXPECT_EQ(AccountPartition::storeRoot(), QUrl::fromLocalFile(at("accounts/auth0_x")));
    EXPECT_TRUE(QFileInfo(at("accounts/auth0_x")).isDir());

    AccountPartition::deactivate();
    EXPECT_EQ(AccountPartition::storeRoot(), QUrl::fromLocalFile(at("accounts/_none")));
}

TEST_F(AccountPartitionTest, FirstAccountInheritsTheLegacyLayoutAndTheSecondNothing)
{
    writeLegacyLayout();
    testing::internal::CaptureStderr();
    AccountPartition::activate("first");
    const std::string log = testing::internal::GetCapturedStderr();

    for (const char *name : AccountPartition::legacyNames) {
        EXPECT_FALSE(exists(name)) << name;
        EXPECT_TRUE(exists(QString("accounts/first/") + name)) << name;
    }
    EXPECT_EQ(test::readBytes(at("accounts/first/projects/P1/c0_probe.json")), "{}");
    EXPECT_TRUE(QFileInfo(at(".migrated")).isFile());
    EXPECT_EQ(QFileInfo(at(".migrated")).size(), 0);
    EXPECT_EQ(log.find("error"), std::string::npos) << log;

    // Old data that turns up later is not handed to anyone.
    test::writeBytes(at("profiles/index.json"), "[]");
    AccountPartition::activate("second");
    EXPECT_EQ(AccountPartition::active(), QUrl::fromLocalFile(at("accounts/second")));
    EXPECT_EQ(QDir(at("accounts/second")).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList{});
    EXPECT_TRUE(exists("profiles/index.json"));
}

TEST_F(AccountPartitionTest, ParkedDataIsAdoptedWhole)
{
    writeLegacyLayout();
    testing::internal::CaptureStderr();
    AccountPartition::parkLegacy(baseURL());
    const std::string parkLog = testing::internal::GetCapturedStderr();
    EXPECT_EQ(parkLog, "velum: parked pre-partition data for the first account that signs in\n");
    for (const char *name : AccountPartition::legacyNames) {
        EXPECT_FALSE(exists(name)) << name;
        EXPECT_TRUE(exists(QString("accounts/_none/") + name)) << name;
    }
    EXPECT_FALSE(exists(".migrated")) << "parking is not adopting";

    testing::internal::CaptureStderr();
    AccountPartition::activate("auth0|new");
    const std::string adoptLog = testing::internal::GetCapturedStderr();
    EXPECT_EQ(adoptLog, "velum: adopted the parked pre-partition data into the first signed-in account\n");
    EXPECT_FALSE(exists("accounts/_none"));
    EXPECT_EQ(test::readBytes(at("accounts/auth0_new/state.json")), R"({"version":2})");
    EXPECT_TRUE(exists("accounts/auth0_new/analysis/abc.json"));
    EXPECT_TRUE(exists(".migrated"));
}

TEST_F(AccountPartitionTest, LegacyNameInBothPlacesStaysAtTheTopWithAnErrorLine)
{
    test::writeBytes(at("profiles/index.json"), "old");
    test::writeBytes(at("analysis/x.json"), "{}");
    test::writeBytes(at("accounts/acct/profiles/index.json"), "new");

    testing::internal::CaptureStderr();
    AccountPartition::adopt(AccountPartition::root("acct", baseURL()), baseURL());
    const std::string log = testing::internal::GetCapturedStderr();

    EXPECT_EQ(log, "velum: error: legacy profiles also exists in the partition — left at the top level\n");
    EXPECT_EQ(test::readBytes(at("profiles/index.json")), "old");
    EXPECT_EQ(test::readBytes(at("accounts/acct/profiles/index.json")), "new");
    EXPECT_TRUE(exists("accounts/acct/analysis/x.json"));
    EXPECT_FALSE(exists("analysis"));
    EXPECT_TRUE(exists(".migrated"));
}

TEST_F(AccountPartitionTest, ParkingLeavesWhatIsAlreadyParked)
{
    testing::internal::CaptureStderr();
    AccountPartition::parkLegacy(baseURL());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_FALSE(exists("accounts")) << "nothing to park, nothing made";

    test::writeBytes(at("accounts/_none/state.json"), "parked before");
    test::writeBytes(at("state.json"), "newer");
    test::writeBytes(at("profile/params.json"), "{}");
    testing::internal::CaptureStderr();
    AccountPartition::parkLegacy(baseURL());
    (void)testing::internal::GetCapturedStderr();
    EXPECT_EQ(test::readBytes(at("accounts/_none/state.json")), "parked before");
    EXPECT_EQ(test::readBytes(at("state.json")), "newer");
    EXPECT_TRUE(exists("accounts/_none/profile/params.json"));
    EXPECT_FALSE(exists("profile"));
}

TEST_F(AccountPartitionTest, ActiveIsSafeToReadFromOtherThreads)
{
    std::atomic<bool> stop{false};
    std::atomic<int> reads{0};
    std::thread reader([&] {
        while (!stop) {
            const QUrl root = AccountPartition::storeRoot();
            EXPECT_FALSE(root.isEmpty());
            ++reads;
        }
    });
    for (int i = 0; i < 50; ++i) {
        AccountPartition::activate(QString("user%1").arg(i % 3));
        AccountPartition::deactivate();
    }
    while (reads < 10)
        std::this_thread::yield();
    stop = true;
    reader.join();
    EXPECT_FALSE(AccountPartition::active());
}

} // namespace
