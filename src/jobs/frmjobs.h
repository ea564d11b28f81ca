#pragma once

#include "history/jobhistory.h"

#include <QWidget>

class QComboBox;
class QLineEdit;
class QPushButton;
class QSortFilterProxyModel;
class QStandardItemModel;
class QTableView;

// The job history as a table: sorted by any column, searched, filtered by
// status; a job's output opened, shown in its folder, or the entry removed
// with its files.
class FrmJobs : public QWidget
{
    Q_OBJECT
public:
    enum Column { Time, Client, User, Title, Language, Pages, Size, Output, Status, Columns };
    explicit FrmJobs(QWidget* parent = nullptr);

    // Reads the history again.
    void reload();
    // The chosen row's files, full paths (those that still exist).
    QStringList selectedFiles() const;
    qint64 selectedId() const;

    void cmdOpen_Click();
    void cmdShowInFolder_Click();
    void cmdRemove_Click();

    QLineEdit* txtSearch = nullptr;
    QComboBox* cboStatus = nullptr; // "All", then each status
    QTableView* tblJobs = nullptr;
    QPushButton* cmdOpen = nullptr;         // "Open"
    QPushButton* cmdShowInFolder = nullptr; // "Show in folder"
    QPushButton* cmdRemove = nullptr;       // "Remove..."
    QPushButton* cmdRefresh = nullptr;      // "Refresh"
    QStandardItemModel* model = nullptr;
    QSortFilterProxyModel* view = nullptr;

private:
    void filter();
    void enableActions();
    QList<JobRecord> m_rows;
};
