#include "fileconditions.h"
#include "unittest.h"
#include "Utils/rwjson.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <sys/stat.h>

namespace {

const QByteArray Sample = R"({"plcName": "press 4", "empty": "", "number": 12, "fraction": 1.5, "flag": true,
                              "off": "false", "nested": {"a": 1}, "umlaut": "Größe"})";

TEST(SettingsFile, readsTopLevelValuesAsText)
{
    const TestFile file(Sample);
    EXPECT_EQ(RWJson::readFromJsonFile(file.path(), "plcName"), "press 4");
    EXPECT_EQ(RWJson::readFromJsonFile(file.path(), "number"), "12");
    EXPECT_EQ(RWJson::readFromJsonFile(file.path(), "fraction"), "1.5");
    EXPECT_EQ(RWJson::readFromJsonFile(file.path(), "flag"), "true");
    EXPECT_EQ(RWJson::readFromJsonFile(file.path(), "umlaut"), QString::fromUtf8("Größe"));
}

TEST(SettingsFile, anEmptyTextIsNotNull)
{
    const TestFile file(Sample);
    const QString value = RWJson::readFromJsonFile(file.path(), "empty");
    EXPECT_TRUE(value.isEmpty());
    EXPECT_FALSE(value.isNull());
}

TEST(SettingsFile, aNestedObjectReadsAsEmpty)
{
    const TestFile file(Sample);
    EXPECT_TRUE(RWJson::readFromJsonFile(file.path(), "nested").isEmpty());
    EXPECT_TRUE(RWJson::readFromJsonFile(file.path(), "a").isNull());
}

TEST(SettingsFile, whatIsNotThereIsNull)
{
    EXPECT_TRUE(RWJson::readFromJsonFile("/nonexistent/file", "plcName").isNull());
    EXPECT_TRUE(RWJson::readFromJsonFile(TestFile(Sample).path(), "missing").isNull());
    for (const char* content : {"", "{\"plcName\": ", "[{\"plcName\": \"x\"}]", "\"plcName\"", "\xFF\xFE"}) {
        const TestFile file(content);
        EXPECT_TRUE(RWJson::readFromJsonFile(file.path(), "plcName").isNull()) << content;
    }
}

TEST(SettingsFile, readsTypedValuesWithDefaults)
{
    const TestFile file(Sample);
    EXPECT_TRUE(RWJson::readBoolFromJsonFile(file.path(), "flag", false));
    EXPECT_FALSE(RWJson::readBoolFromJsonFile(file.path(), "off", true));
    EXPECT_TRUE(RWJson::readBoolFromJsonFile(file.path(), "missing", true));
    EXPECT_EQ(RWJson::readIntFromJsonFile(file.path(), "number", 7), 12);
    EXPECT_EQ(RWJson::readIntFromJsonFile(file.path(), "plcName", 7), 7);
    EXPECT_EQ(RWJson::readIntFromJsonFile(file.path(), "missing", 7), 7);
}

TEST(SettingsFile, readsSeveralValuesInTheOrderOfTheKeys)
{
    const TestFile file(Sample);
    EXPECT_EQ(RWJson::readValuesFromJsonFile(file.path(), {"number", "missing", "empty", "plcName"}),
              (QStringList{"12", "-1", "", "press 4"}));
}

TEST(SettingsFile, writingKeepsTheOtherKeys)
{
    const TestFile file(Sample);
    EXPECT_TRUE(RWJson::writeToJsonFile(file.path(), "plcName", "press 5"));
    EXPECT_TRUE(RWJson::writeBoolToJsonFile(file.path(), "flag", false));
    EXPECT_TRUE(RWJson::writeIntToJsonFile(file.path(), "number", -3));
    EXPECT_TRUE(RWJson::writeValuesToJsonFile(file.path(), {"x", "y"}, {"1", "2"}));
    EXPECT_TRUE(RWJson::removeKeyFromJsonFile(file.path(), "fraction"));

    const QJsonObject object = RWJson::readJsonObjectFromJsonFile(file.path());
    EXPECT_EQ(object.value("plcName"), "press 5");
    EXPECT_EQ(object.value("flag"), false);
    EXPECT_EQ(object.value("number"), -3);
    EXPECT_EQ(object.value("x"), "1");
    EXPECT_EQ(object.value("y"), "2");
    EXPECT_FALSE(object.contains("fraction"));
    EXPECT_EQ(object.value("umlaut"), QString::fromUtf8("Größe"));
}

TEST(SettingsFile, writingStartsAnewWhereThereIsNoObject)
{
    const TestFile file("[1, 2]");
    EXPECT_TRUE(RWJson::writeToJsonFile(file.path(), "a", "b"));
    EXPECT_EQ(RWJson::readJsonObjectFromJsonFile(file.path()), (QJsonObject{{"a", "b"}}));
}

TEST(SettingsFile, replacesTheWholeObject)
{
    const TestFile file(Sample);
    QJsonObject object{{"only", 1}};
    EXPECT_TRUE(RWJson::writeJsonObjectToJsonFile(file.path(), object));
    EXPECT_EQ(RWJson::readJsonObjectFromJsonFile(file.path()), object);
}

TEST(SettingsFile, defaultsStandForWhatIsNoBoolOrInteger)
{
    const TestFile file(Sample);
    EXPECT_TRUE(RWJson::readBoolFromJsonFile(file.path(), "empty", true));
    EXPECT_EQ(RWJson::readIntFromJsonFile(file.path(), "fraction", 7), 7);
    EXPECT_EQ(RWJson::readValuesFromJsonFile("/nonexistent/file", {"a", "b"}), (QStringList{"-1", "-1"}));
}

TEST(SettingsFile, writingMakesAFileThatIsMissing)
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("new.json");
    EXPECT_TRUE(RWJson::writeToJsonFile(path, "a", "b"));
    EXPECT_EQ(RWJson::readFromJsonFile(path, "a"), "b");
}

TEST(SettingsFile, whatIsNoRegularFileIsNotOpened)
{
    const QTemporaryDir directory;
    const QString pipe = directory.filePath("pipe");
    ASSERT_EQ(mkfifo(pipe.toUtf8().constData(), 0600), 0);
    EXPECT_TRUE(RWJson::readFromJsonFile(pipe, "a").isNull());
    EXPECT_FALSE(RWJson::writeToJsonFile(pipe, "a", "b"));
    EXPECT_TRUE(RWJson::readFromJsonFile("/dev/zero", "a").isNull());
    EXPECT_TRUE(RWJson::readFromJsonFile(directory.path(), "a").isNull());
}

TEST(SettingsFile, sayWhenAFileCannotBeWritten)
{
    EXPECT_FALSE(RWJson::writeToJsonFile("/nonexistent/file", "a", "b"));
    EXPECT_TRUE(RWJson::readJsonObjectFromJsonFile("/nonexistent/file").isEmpty());
}

TEST(SettingsFile, aWriterThatAddsOrRemovesTouchesNoOtherKey)
{
    const TestFile file(R"({"a": [1, {"b": null}], "c": 1.5, "d": "Größe"})");
    EXPECT_TRUE(RWJson::writeToJsonFile(file.path(), "e", "\"quoted\"\n"));
    EXPECT_TRUE(RWJson::removeKeyFromJsonFile(file.path(), "none"));
    EXPECT_EQ(RWJson::readFromJsonFile(file.path(), "e"), "\"quoted\"\n");
    EXPECT_TRUE(RWJson::removeKeyFromJsonFile(file.path(), "e"));
    EXPECT_EQ(QJsonDocument::fromJson(contentOf(file.path())),
              QJsonDocument::fromJson(R"({"a": [1, {"b": null}], "c": 1.5, "d": "Größe"})"));
}

TEST(SettingsFile, aValueThatIsMissingEndsTheListOfPairs)
{
    const TestFile file("{}");
    EXPECT_TRUE(RWJson::writeValuesToJsonFile(file.path(), {"a", "b"}, {"1"}));
    EXPECT_EQ(RWJson::readJsonObjectFromJsonFile(file.path()), (QJsonObject{{"a", "1"}}));
}

TEST(SettingsFile, deepNestingReadsAsNothing)
{
    const TestFile file("{\"plcName\": " + QByteArray("[").repeated(1'000'000) + QByteArray("]").repeated(1'000'000) +
                        "}");
    EXPECT_TRUE(RWJson::readFromJsonFile(file.path(), "plcName").isNull());
    EXPECT_TRUE(RWJson::readJsonObjectFromJsonFile(file.path()).isEmpty());
    const TestFile deepest("{\"plcName\": \"x\", \"deep\": " + QByteArray("[").repeated(1000) +
                           QByteArray("]").repeated(1000) + "}");
    EXPECT_EQ(RWJson::readFromJsonFile(deepest.path(), "plcName"), "x");
    EXPECT_TRUE(RWJson::writeIntToJsonFile(deepest.path(), "more", 1));
    EXPECT_EQ(RWJson::readValuesFromJsonFile(deepest.path(), {"plcName", "more"}), (QStringList{"x", "1"}));
}

TEST(SettingsFile, oneThatIsTooLargeIsNeitherReadNorReplaced)
{
    const TestFile file(R"({"plcName": "x"})");
    constexpr qint64 Huge = qint64{1} << 40;
    ASSERT_TRUE(QFile::resize(file.path(), Huge));
    EXPECT_TRUE(RWJson::readFromJsonFile(file.path(), "plcName").isNull());
    EXPECT_FALSE(RWJson::writeToJsonFile(file.path(), "plcName", "y"));
    EXPECT_FALSE(RWJson::removeKeyFromJsonFile(file.path(), "plcName"));
    EXPECT_EQ(QFileInfo(file.path()).size(), Huge);
}

using Writer = bool (*)(const QString& path);

const Writer Writers[] = {
    [](const QString& path) { return RWJson::writeToJsonFile(path, "plcName", QString(9000, 'x')); },
    [](const QString& path) { return RWJson::writeBoolToJsonFile(path, QString(9000, 'x'), true); },
    [](const QString& path) { return RWJson::writeIntToJsonFile(path, QString(9000, 'x'), 1); },
    [](const QString& path) { return RWJson::writeValuesToJsonFile(path, {"plcName"}, {QString(9000, 'x')}); },
    [](const QString& path) {
        QJsonObject object{{"a", QString(9000, 'x')}};
        return RWJson::writeJsonObjectToJsonFile(path, object);
    },
};

TEST(SettingsFile, withoutWritePermissionKeepsItsContent)
{
    for (const Writer write : Writers) {
        const TestFile file(Sample);
        const auto writeWithMode = [&](unsigned mode) {
            setReachable(file.path(), mode);
            const Unprivileged nobody;
            return write(file.path());
        };
        EXPECT_FALSE(writeWithMode(0444));
        EXPECT_EQ(contentOf(file.path()), Sample);
        EXPECT_TRUE(writeWithMode(0666));
    }
    const TestFile file(Sample);
    setReachable(file.path(), 0444);
    const Unprivileged nobody;
    EXPECT_FALSE(RWJson::removeKeyFromJsonFile(file.path(), "plcName"));
}

TEST(SettingsFile, onAFullDiskKeepsItsContent)
{
    const QByteArray page = Sample + QByteArray(4096 - Sample.size(), ' ');
    for (const Writer write : Writers)
        EXPECT_EQ(writeOnFullDisk(page, write), WriteOutcome::Refused);
    EXPECT_EQ(writeOnFullDisk(page, [](const QString& path) { return RWJson::removeKeyFromJsonFile(path, "empty"); }),
              WriteOutcome::Written);
    EXPECT_EQ(makeOnFullDisk(Writers[0]), WriteOutcome::Refused);
}

} // namespace
