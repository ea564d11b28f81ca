#pragma once

#include <QDialog>
#include <QMap>
#include <QString>

class QDialogButtonBox;
class QLabel;
class QPlainTextEdit;
class QPushButton;
class QTabWidget;

// The preferences: a page per concern, built from Prefs::fields(). Nothing
// is written until OK, and then only when every page is valid.
class FrmPreferences : public QDialog
{
    Q_OBJECT
public:
    // running: values the running program uses instead of the settings (the port of --port).
    explicit FrmPreferences(const QMap<QString, QString>& running = {}, QWidget* parent = nullptr);

    QMap<QString, QString> values() const;
    void setValue(const QString& key, const QString& value);
    QWidget* editor(const QString& key) const { return m_editors.value(key); }
    // Checks every page; the first bad field is shown, marked, with why. True when all are good.
    bool validate();
    void accept() override;

    QTabWidget* tabPages = nullptr;
    QLabel* lblPreview = nullptr;   // what the name template gives for a sample job
    QLabel* lblProblem = nullptr;   // why OK was refused
    QPushButton* cmdTest = nullptr; // "Test connection"
    QPlainTextEdit* txtTest = nullptr;
    QDialogButtonBox* buttons = nullptr;

signals:
    // After OK: the keys whose values changed, with their new values.
    void saved(const QMap<QString, QString>& changed);

private:
    void build();
    bool mark(const QString& key); // false when the field is bad; marks it so
    void refreshPreview();
    void cmdTest_Click();

    QMap<QString, QWidget*> m_editors;
    QMap<QString, QString> m_loaded;
};
