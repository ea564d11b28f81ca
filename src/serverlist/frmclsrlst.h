#pragma once

// The cloud server list editor: one grid row per server the user may print
// to (user id, server id, notes). The selected row is the program's cloud
// destination. Rows are kept in the settings as ClientUserId<n>,
// ClientServerId<n>, ClientNotes<n> and Selected<n>.

#include "common/int16.h"
#include "common/twips.h"

#include <QString>
#include <QWidget>

class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QTableWidget;
class QTableWidgetItem;
class UcCloudSrvr;

class FrmClSrLst : public QWidget
{
    Q_OBJECT
public:
    // The installation id is never offered as a server: this program does not print to itself.
    explicit FrmClSrLst(QString installationId, QWidget* parent = nullptr);
    ~FrmClSrLst() override;

    void Form_Load();
    void DoGetFg2DRow(Int16 row);
    void DoSaveFg2DRow(Int16 row);
    // Makes a stored row the selected one (a double click on its Sr cell).
    bool DoSelectFg2Row(Int16 row);

    void MSHFlexGridEdit(QTableWidget* grid, QLineEdit* editor, int KeyAscii);
    void MSHFlexGridEditC(QTableWidget* grid, QComboBox* combo, int KeyAscii);
    void EditKeyCode(QTableWidget* grid, QLineEdit* editor, int& KeyCode, int Shift);
    void EditKeyCodeC(QTableWidget* grid, QComboBox* combo, int& KeyCode, int Shift);

    void FG2_KeyPress(int& KeyAscii);
    void FG2_DblClick();
    void FG2_Click();
    void Fg2_GotFocus();
    void txtEdit_KeyDown(int& KeyCode, int Shift);
    void TxtEdit_KeyPress(int& KeyAscii);
    void Combo1_KeyDown(int& KeyCode, int Shift);
    void Combo1_KeyPress(int& KeyAscii);
    void Combo1_GotFocus();
    void UcCloudSrvr1_ClientInfoReturn(QString& ClientServerId, QString& ClientServerList);

    // Grid row n (1-based, as the Sr column numbers it) shows the picture of picC.
    bool isRowSelected(int row) const;
    int currentRow() const { return m_CurRow; }
    int currentColumn() const { return m_CurCol; }
    int selectedRow() const { return m_SelRow; }

    QTableWidget* FG2 = nullptr;         // the server list
    QLineEdit* TxtEdit = nullptr;        // in-cell editor of user ids and notes
    QComboBox* Combo1 = nullptr;         // in-cell list of the user's servers
    QLabel* picC = nullptr;              // selected mark
    QLabel* picUnC = nullptr;            // not-selected mark
    QGroupBox* Frame1 = nullptr;         // hidden: the pictures and the cloud control
    UcCloudSrvr* UcCloudSrvr1 = nullptr; // looks up a user's servers

signals:
    // A row became the selected one: the program prints to the cloud there from now on.
    void cloudDestinationChanged(const QString& userId, const QString& serverId);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    int gridRows() const; // rows of the grid, the heading row included
    void clearGrid();     // one empty row under the headings
    // The grid got the focus back from an editor: what was typed is taken.
    void commitServerCell();
    void commitNotesCell();
    void lookUpUserServers();
    void addGridRow();
    QTableWidgetItem* cell(int row, int column);
    QString cellText(int row, int column) const;
    void setGridCell(int row, int column);
    void markRow(int row, QLabel* picture);
    void setDestination(const QString& userId, const QString& serverId);
    QRect currentCellRect(QTableWidget* grid, QWidget* editor) const;
    bool isInstallationId(const QString& id) const;
    bool popupKey(QKeyEvent* key);

    QString m_InstallationId;
    bool m_Loaded = false;
    Int16 m_CurRow = 1;
    Int16 m_CurCol = 2;
    Int16 m_SelRow = 0;
};
