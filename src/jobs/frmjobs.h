#pragma once

#include "history/jobhistory.h"

#include <QWidget>
#include <functional>

class QComboBox;
class QLabel;
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
    // The running job's line above the table; empty hides it.
    void setProgress(const QString& text);
    // The chosen row's files, full paths (those that still exist).
    QStringList selectedFiles() const;
    qint64 selectedId() const;
    // The PostScript a failed job left (job folder, or failed/ of the queue); empty when gone.
    QString selectedPostScript() const;

    void cmdOpen_Click();
    void cmdShowInFolder_Click();
    void cmdRemove_Click();
    void cmdPrintAgain_Click();
    void cmdRetry_Click();

    // Takes a file through the road again as a new job, to the output chosen now; false when
    // it could not be taken. consume: the file is the job's (a retried PostScript) and goes.
    std::function<bool(const QString&, bool consume)> resubmit;

    QLineEdit* txtSearch = nullptr;
    QComboBox* cboStatus = nullptr; // "All", then each status
    QTableView* tblJobs = nullptr;
    QLabel* lblProgress = nullptr;          // the running job, while one runs
    QPushButton* cmdOpen = nullptr;         // "Open"
    QPushButton* cmdShowInFolder = nullptr; // "Show in folder"
    QPushButton* cmdRemove = nullptr;       // "Remove..."
    QPushButton* cmdPrintAgain = nullptr;   // "Print again": the output, as a new job
    QPushButton* cmdRetry = nullptr;        // "Retry": a failed job's PostScript, as a new job
    QPushButton* cmdRefresh = nullptr;      // "Refresh"
    QStandardItemModel* model = nullptr;
    QSortFilterProxyModel* view = nullptr;

private:
    const JobRecord* selected() const;
    void filter();
    void enableActions();
    QList<JobRecord> m_rows;
};
