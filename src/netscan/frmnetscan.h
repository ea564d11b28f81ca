#pragma once

#include "common/int16.h"

#include <QString>
#include <QWidget>

class QListWidget;
class QPlainTextEdit;
class QPushButton;

// Lists the computers of the local network and their IPv4 addresses:
// lstComps holds the names, List1 the aligned "name | address" lines, line i
// of one belonging to line i of the other.
class FrmNetScan : public QWidget
{
    Q_OBJECT
public:
    explicit FrmNetScan(QWidget* mainWindow = nullptr);
    ~FrmNetScan() override;

    void Form_Load();
    void Form_Unload();
    void Command1_Click();
    // Steps of the scan after the command ran: lists, widths, lookups.
    void ScanOutput(const QString& output);
    void Command1click(const QString& name);
    void List1_Click();
    void lstComps_Click();

    // The command whose output is scanned; "net view" by default.
    QString ProcessShells(const QString& command);

    int nameWidth() const { return m_NameWidth; }
    const QString& logPath() const { return m_LogPath; }

    QPlainTextEdit* Text2 = nullptr;
    QListWidget* lstComps = nullptr;
    QListWidget* List1 = nullptr;
    QPushButton* Command1 = nullptr;

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void SocketsInitialize();
    void SocketsCleanup();

    QWidget* m_MainWindow;
    QString m_ProgramFolder;
    QString m_LogPath;
    Int16 m_NameWidth;
    bool m_Unloaded = false;
};
