#include "jobs/frmjobs.h"

#include "common/msgbox.h"
#include "common/paths.h"
#include "common/runtimeerror.h"
#include "dispatch/jobfiles.h"
#include "platform/printertools.h"

#include <QComboBox>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QSortFilterProxyModel>
#include <QStandardItemModel>
#include <QTableView>
#include <QUrl>
#include <QVBoxLayout>

namespace
{
// A search over every column, and the status column matched whole.
class JobFilter : public QSortFilterProxyModel
{
public:
    using QSortFilterProxyModel::QSortFilterProxyModel;
    QString status;
    QString words;
    void changed() { invalidateFilter(); }

protected:
    bool filterAcceptsRow(int row, const QModelIndex& parent) const override
    {
        const QAbstractItemModel* m = sourceModel();
        if (!status.isEmpty() && m->index(row, FrmJobs::Status, parent).data().toString() != status)
            return false;
        if (words.isEmpty())
            return true;
        for (int c = 0; c < FrmJobs::Columns; ++c)
            if (m->index(row, c, parent).data().toString().contains(words, Qt::CaseInsensitive))
                return true;
        return false;
    }
};

constexpr int kSortRole = Qt::UserRole + 1;

// id: the job's row in the history; sortBy: what sorts, where the text does not (no page count).
QStandardItem* cell(const QVariant& value, qint64 id = 0, const QVariant& sortBy = {})
{
    auto* item = new QStandardItem;
    item->setData(value, Qt::DisplayRole);
    item->setData(id, Qt::UserRole);
    item->setData(sortBy.isValid() ? sortBy : value, kSortRole);
    item->setEditable(false);
    return item;
}
} // namespace

FrmJobs::FrmJobs(QWidget* parent) : QWidget(parent)
{
    setWindowTitle(QStringLiteral("Quorvel Jobs"));
    auto* root = new QVBoxLayout(this);
    auto* top = new QHBoxLayout;
    txtSearch = new QLineEdit(this);
    txtSearch->setPlaceholderText(QStringLiteral("Search"));
    txtSearch->setClearButtonEnabled(true);
    cboStatus = new QComboBox(this);
    cboStatus->addItems({QStringLiteral("All"), QStringLiteral("done"), QStringLiteral("partial"),
                         QStringLiteral("kept unconverted"), QStringLiteral("failed")});
    top->addWidget(txtSearch, 1);
    top->addWidget(new QLabel(QStringLiteral("Status:"), this));
    top->addWidget(cboStatus);
    root->addLayout(top);

    model = new QStandardItemModel(0, Columns, this);
    model->setHorizontalHeaderLabels(
        {QStringLiteral("Time"), QStringLiteral("Client"), QStringLiteral("User"),
         QStringLiteral("Title"), QStringLiteral("Language"), QStringLiteral("Pages"),
         QStringLiteral("Size"), QStringLiteral("Output"), QStringLiteral("Status")});
    view = new JobFilter(this);
    view->setSourceModel(model);
    view->setSortRole(kSortRole);
    tblJobs = new QTableView(this);
    tblJobs->setObjectName(QStringLiteral("tblJobs"));
    tblJobs->setModel(view);
    tblJobs->setSortingEnabled(true);
    tblJobs->sortByColumn(Time, Qt::DescendingOrder);
    tblJobs->setSelectionBehavior(QAbstractItemView::SelectRows);
    tblJobs->setSelectionMode(QAbstractItemView::SingleSelection);
    tblJobs->horizontalHeader()->setStretchLastSection(true);
    tblJobs->verticalHeader()->hide();
    tblJobs->setWordWrap(false);
    lblProgress = new QLabel(this);
    lblProgress->hide();
    root->addWidget(lblProgress);
    root->addWidget(tblJobs, 1);

    auto* actions = new QHBoxLayout;
    cmdOpen = new QPushButton(QStringLiteral("Open"), this);
    cmdShowInFolder = new QPushButton(QStringLiteral("Show in folder"), this);
    cmdRemove = new QPushButton(QStringLiteral("Remove..."), this);
    cmdRefresh = new QPushButton(QStringLiteral("Refresh"), this);
    cmdPrintAgain = new QPushButton(QStringLiteral("Print again"), this);
    cmdRetry = new QPushButton(QStringLiteral("Retry"), this);
    for (QPushButton* b : {cmdOpen, cmdShowInFolder, cmdPrintAgain, cmdRetry, cmdRemove})
        actions->addWidget(b);
    actions->addStretch();
    actions->addWidget(cmdRefresh);
    root->addLayout(actions);
    resize(900, 420);

    connect(txtSearch, &QLineEdit::textChanged, this, [this] { filter(); });
    connect(cboStatus, &QComboBox::currentTextChanged, this, [this] { filter(); });
    connect(cmdOpen, &QPushButton::clicked, this, Guarded([this] { cmdOpen_Click(); }));
    connect(cmdShowInFolder, &QPushButton::clicked, this,
            Guarded([this] { cmdShowInFolder_Click(); }));
    connect(cmdRemove, &QPushButton::clicked, this, Guarded([this] { cmdRemove_Click(); }));
    connect(cmdPrintAgain, &QPushButton::clicked, this, Guarded([this] { cmdPrintAgain_Click(); }));
    connect(cmdRetry, &QPushButton::clicked, this, Guarded([this] { cmdRetry_Click(); }));
    connect(cmdRefresh, &QPushButton::clicked, this, Guarded([this] { reload(); }));
    connect(tblJobs, &QTableView::doubleClicked, this, Guarded([this] { cmdOpen_Click(); }));
    connect(tblJobs->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            [this] { enableActions(); });
    reload();
}

void FrmJobs::reload()
{
    const qint64 chosen = selectedId();
    m_rows = JobHistory::rows();
    model->removeRows(0, model->rowCount());
    for (const JobRecord& r : m_rows) {
        const QString when = r.finished.toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
        model->appendRow(
            {cell(when, r.id), cell(r.clientText()), cell(r.user), cell(r.title), cell(r.language),
             cell(r.pages >= 0 ? QVariant(r.pages) : QVariant(), 0, r.pages), cell(r.bytes),
             cell(r.outputs.join(QStringLiteral(", "))), cell(r.status)});
    }
    tblJobs->resizeColumnsToContents();
    for (int row = 0; row < view->rowCount(); ++row)
        if (view->index(row, Time).data(Qt::UserRole).toLongLong() == chosen)
            tblJobs->selectRow(row);
    enableActions();
}

qint64 FrmJobs::selectedId() const
{
    const QModelIndexList rows = tblJobs->selectionModel()->selectedRows(Time);
    return rows.isEmpty() ? 0 : rows.first().data(Qt::UserRole).toLongLong();
}

const JobRecord* FrmJobs::selected() const
{
    const qint64 id = selectedId();
    for (const JobRecord& r : m_rows)
        if (id != 0 && r.id == id)
            return &r;
    return nullptr;
}

QStringList FrmJobs::selectedFiles() const
{
    QStringList files;
    if (const JobRecord* r = selected())
        for (const QString& output : r->outputs)
            if (const QString path = QDir(Paths::jobFolder()).filePath(output);
                QFileInfo(path).isFile())
                files << QDir::toNativeSeparators(path);
    return files;
}

QString FrmJobs::selectedPostScript() const
{
    const JobRecord* r = selected();
    if (!r || (r->status != QLatin1String("failed") && r->status != QLatin1String("partial")))
        return {};
    const QDir folder(Paths::jobFolder());
    for (const QString& path : {folder.filePath(r->name + QStringLiteral(".ps")),
                                folder.filePath(QStringLiteral("failed/") + r->name + ".ps")})
        if (QFileInfo(path).isFile())
            return QDir::toNativeSeparators(path);
    return {};
}

void FrmJobs::cmdPrintAgain_Click()
{
    for (const QString& file : selectedFiles())
        if (!resubmit || !resubmit(file, false))
            break;
    reload();
}

void FrmJobs::cmdRetry_Click()
{
    const QString ps = selectedPostScript();
    if (ps.isEmpty())
        return;
    if (resubmit)
        resubmit(ps, true);
    reload();
}

void FrmJobs::filter()
{
    auto* f = static_cast<JobFilter*>(view);
    f->words = txtSearch->text().trimmed();
    f->status = cboStatus->currentIndex() == 0 ? QString() : cboStatus->currentText();
    f->changed();
    enableActions();
}

void FrmJobs::enableActions()
{
    const bool files = !selectedFiles().isEmpty();
    cmdOpen->setEnabled(files);
    cmdShowInFolder->setEnabled(files);
    cmdPrintAgain->setEnabled(files);
    cmdRetry->setEnabled(!selectedPostScript().isEmpty());
    cmdRemove->setEnabled(selectedId() != 0);
}

void FrmJobs::cmdOpen_Click()
{
    const QStringList files = selectedFiles();
    if (!files.isEmpty())
        QDesktopServices::openUrl(QUrl::fromLocalFile(files.first()));
}

void FrmJobs::cmdShowInFolder_Click()
{
    const QStringList files = selectedFiles();
    if (!files.isEmpty())
        PrinterTools::openFolder(QFileInfo(files.first()).absolutePath().toStdWString());
}

void FrmJobs::cmdRemove_Click()
{
    const qint64 id = selectedId();
    if (id == 0)
        return;
    const QStringList files = selectedFiles();
    const QString text =
        files.isEmpty()
            ? QStringLiteral("Remove this job from the history?")
            : QStringLiteral("Remove this job from the history and delete its %1 file(s)?\n%2")
                  .arg(files.size())
                  .arg(files.join(u'\n'));
    if (!MsgAsk(text, QStringLiteral("Remove job")))
        return;
    for (const QString& file : files)
        WipeFile(file);
    QString why;
    if (!JobHistory::remove(id, &why))
        MsgBox(QStringLiteral("The job cannot be removed from the history: ") + why,
               MsgIcon::Exclamation);
    reload();
}

void FrmJobs::setProgress(const QString& text)
{
    lblProgress->setText(text);
    lblProgress->setVisible(!text.isEmpty());
}
