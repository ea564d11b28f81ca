#pragma once

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

// What the preferences window edits: every setting a person may change,
// its page, how it is shown and what it may hold. Qt Core only, so the
// rules are the same with or without a window.
namespace Prefs
{
enum class Page { Receiving, Conversion, Names, AfterSaving, Cloud };
enum class Kind { Text, Check, Choice, Lines, Folder, File, Password };

struct Field {
    Field(QString key, QString label, Page page, Kind kind = Kind::Text, QStringList choices = {},
          QString hint = {})
        : key(std::move(key)), label(std::move(label)), page(page), kind(kind),
          choices(std::move(choices)), hint(std::move(hint))
    {
    }
    QString key;
    QString label;
    Page page;
    Kind kind;
    QStringList choices; // Choice: the words kept in the settings
    QString hint;        // shown under the field, or its placeholder
};

QString pageTitle(Page page);
const QList<Field>& fields();
const Field* field(const QString& key);

// Why value cannot be kept under key; empty when it can. values: the
// whole form, for rules that read two fields.
QString problem(const QString& key, const QString& value,
                const QMap<QString, QString>& values = {});
// What the settings hold now, with the default for an absent key.
QString current(const QString& key);
// Writes every value (the password into the credential store, only when one is given);
// the caller has checked them all first.
void save(const QMap<QString, QString>& values);

// Key names the program reads.
inline const QString kPort = QStringLiteral("Port");
inline const QString kWorkers = QStringLiteral("Workers");
inline const QString kIpp = QStringLiteral("Ipp"); // the switch: IppPort is 0 when it is off
inline const QString kIppPort = QStringLiteral("IppPort");
constexpr int kIppDefaultPort = 8631; // --ipp: never a local CUPS's 631
inline const QString kJobFolder = QStringLiteral("JobFolder");
inline const QString kOutput = QStringLiteral("Output");
inline const QString kColour = QStringLiteral("Colour");
inline const QString kAfterSave = QStringLiteral("AfterSave");
inline const QString kAfterSaveProgram = QStringLiteral("AfterSaveProgram");
inline const QString kAfterSaveTimeout = QStringLiteral("AfterSaveTimeout");
inline const QString kCloudPoll = QStringLiteral("CloudPoll");
inline const QString kPassword = QStringLiteral("CloudPassword");

// A boolean setting as people write it: 1, true, yes.
bool isTrue(const QString& value);
} // namespace Prefs
