#include "serverlist/frmclsrlst.h"

#include "cloud/uccloudsrvr.h"
#include "common/msgbox.h"
#include "common/runtimeerror.h"
#include "common/settings.h"

#include <QAbstractItemView>
#include <QComboBox>
#include <QGroupBox>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPixmap>
#include <QScrollBar>
#include <QTableWidget>
#include <QVBoxLayout>

namespace
{
constexpr int kColumnTwips[] = {270, 380, 1700, 1600, 1800};
const char* const kHeadings[] = {"", "Sr", "UserId", "ServerId", "Notes"};
constexpr int kGridLeft = 120;    // twips
constexpr int kGridTop = 120;     // twips
constexpr int kGridHeight = 3000; // twips
constexpr int kFormMargin = 600;  // twips below the grid

constexpr int vbKeyReturn = 13;
constexpr int vbKeyEscape = 27;
constexpr int vbKeyUp = 38;
constexpr int vbKeyDown = 40;

QString key(const char* name, int row)
{
    return QLatin1String(name) + QString::number(row);
}

QPixmap markPicture(bool selected)
{
    QPixmap pixmap(12, 12);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QColor(0x40, 0x40, 0x40));
    p.setBrush(selected ? QColor(0x2E, 0xA0, 0x43) : QColor(Qt::white));
    p.drawEllipse(QRectF(1.5, 1.5, 9, 9));
    return pixmap;
}

// The key codes the editors tell apart; everything else is "other".
int vbKeyCode(const QKeyEvent* k)
{
    switch (k->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        return vbKeyReturn;
    case Qt::Key_Escape:
        return vbKeyEscape;
    case Qt::Key_Up:
        return vbKeyUp;
    case Qt::Key_Down:
        return vbKeyDown;
    default:
        return 255;
    }
}

// The character code of a key press, or -1 when the key types nothing
// (arrows, function keys: those move in the grid as usual).
int keyAscii(const QKeyEvent* k)
{
    if (k->key() == Qt::Key_Tab || k->key() == Qt::Key_Backtab)
        return -1;
    const QList<uint> text = k->text().toUcs4();
    return text.isEmpty() ? -1 : int(text.first());
}

QString typedText(int KeyAscii)
{
    const char32_t c = char32_t(KeyAscii);
    return QString::fromUcs4(&c, 1);
}
} // namespace

FrmClSrLst::FrmClSrLst(QString installationId, QWidget* parent)
    : QWidget(parent, Qt::Window), m_InstallationId(std::move(installationId))
{
    setWindowTitle(QStringLiteral("Cloud Server List"));
    FG2 = new QTableWidget(this);
    FG2->setObjectName(QStringLiteral("FG2"));
    FG2->verticalHeader()->hide();
    FG2->setEditTriggers(QAbstractItemView::NoEditTriggers);
    FG2->setSelectionMode(QAbstractItemView::SingleSelection);
    FG2->horizontalHeader()->setHighlightSections(false);
    TxtEdit = new QLineEdit(this);
    TxtEdit->setObjectName(QStringLiteral("TxtEdit"));
    Combo1 = new QComboBox(this);
    Combo1->setObjectName(QStringLiteral("Combo1"));
    TxtEdit->hide();
    Combo1->hide();

    Frame1 = new QGroupBox(this);
    picC = new QLabel(Frame1);
    picC->setPixmap(markPicture(true));
    picUnC = new QLabel(Frame1);
    picUnC->setPixmap(markPicture(false));
    UcCloudSrvr1 = new UcCloudSrvr(Frame1);
    UcCloudSrvr1->setObjectName(QStringLiteral("UcCloudSrvr1"));
    auto* frameLayout = new QVBoxLayout(Frame1);
    frameLayout->addWidget(picC);
    frameLayout->addWidget(picUnC);
    frameLayout->addWidget(UcCloudSrvr1);

    FG2->move(twips(kGridLeft), twips(kGridTop));
    int width = 2 * FG2->frameWidth() + FG2->verticalScrollBar()->sizeHint().width();
    for (int t : kColumnTwips)
        width += twips(t);
    FG2->resize(width, twips(kGridHeight));
    resize(FG2->x() * 2 + width, FG2->height() + twips(kFormMargin));

    FG2->installEventFilter(this);
    FG2->viewport()->installEventFilter(this);
    TxtEdit->installEventFilter(this);
    Combo1->installEventFilter(this);
    Combo1->view()->installEventFilter(this);
    connect(FG2, &QTableWidget::cellClicked, this, Guarded([this] { FG2_Click(); }));
    // The control raises its events by direct call with reference arguments.
    connect(UcCloudSrvr1, &UcCloudSrvr::ClientInfoReturn, this, [this](QString& id, QString& list) {
        RunGuarded([&] { UcCloudSrvr1_ClientInfoReturn(id, list); });
    });
}

FrmClSrLst::~FrmClSrLst() = default;

void FrmClSrLst::showEvent(QShowEvent* event)
{
    // Loaded when first shown, and again after each close, as a form is.
    if (!m_Loaded)
        RunGuarded([this] { Form_Load(); });
    QWidget::showEvent(event);
}

void FrmClSrLst::closeEvent(QCloseEvent* event)
{
    // Closing unloads: rows not yet stored are dropped, the next show reads the settings again.
    m_Loaded = false;
    TxtEdit->hide();
    Combo1->hide();
    QWidget::closeEvent(event);
}

void FrmClSrLst::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    FG2->resize(width() - 2 * FG2->x(), height() - twips(kFormMargin));
}

void FrmClSrLst::clearGrid()
{
    FG2->clearContents();
    FG2->setColumnCount(5);
    FG2->setRowCount(1); // two rows with the heading row
    for (int c = 0; c < 5; ++c) {
        auto* heading = new QTableWidgetItem(QLatin1String(kHeadings[c]));
        heading->setTextAlignment((c == 1 ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter);
        FG2->setHorizontalHeaderItem(c, heading);
        FG2->setColumnWidth(c, twips(kColumnTwips[c]));
    }
}

void FrmClSrLst::Form_Load()
{
    m_Loaded = true;
    Frame1->hide();
    TxtEdit->hide();
    Combo1->hide();
    resize(width(), FG2->height() + twips(kFormMargin));
    m_SelRow = 0;

    clearGrid();
    m_CurRow = 1;
    DoGetFg2DRow(1);
    m_CurRow = 1;
    m_CurCol = 2;
    cell(1, 1)->setText(QStringLiteral("1"));
    setGridCell(1, 2);
}

int FrmClSrLst::gridRows() const
{
    return FG2->rowCount() + 1;
}

void FrmClSrLst::addGridRow()
{
    FG2->setRowCount(FG2->rowCount() + 1);
}

QTableWidgetItem* FrmClSrLst::cell(int row, int column)
{
    QTableWidgetItem* item = FG2->item(row - 1, column);
    if (!item) {
        item = new QTableWidgetItem;
        item->setFlags(column == 0 ? Qt::ItemIsEnabled : Qt::ItemIsEnabled | Qt::ItemIsSelectable);
        if (column == 1)
            item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
        FG2->setItem(row - 1, column, item);
    }
    return item;
}

QString FrmClSrLst::cellText(int row, int column) const
{
    const QTableWidgetItem* item = FG2->item(row - 1, column);
    return item ? item->text() : QString();
}

void FrmClSrLst::setGridCell(int row, int column)
{
    FG2->setCurrentCell(row - 1, column);
}

void FrmClSrLst::markRow(int row, QLabel* picture)
{
    cell(row, 0)->setData(Qt::DecorationRole, picture->pixmap());
}

bool FrmClSrLst::isRowSelected(int row) const
{
    const QTableWidgetItem* item = FG2->item(row - 1, 0);
    // The same picture, not one that looks alike.
    return item &&
           item->data(Qt::DecorationRole).value<QPixmap>().cacheKey() == picC->pixmap().cacheKey();
}

void FrmClSrLst::setDestination(const QString& userId, const QString& serverId)
{
    SettingsStore::put(QStringLiteral("CloudClientUserId"), userId);
    SettingsStore::put(QStringLiteral("CloudClientServerId"), serverId);
    emit cloudDestinationChanged(userId, serverId);
}

bool FrmClSrLst::isInstallationId(const QString& id) const
{
    // The share keeps the installation's collection trimmed and in lower case.
    return id.trimmed().compare(m_InstallationId.trimmed(), Qt::CaseInsensitive) == 0;
}

void FrmClSrLst::DoGetFg2DRow(Int16 row)
{
    // No count key: the list ends at the first row without a user id.
    for (Int16 n = row;; ++n) {
        const QString userId = SettingsStore::get(key("ClientUserId", n));
        if (userId.isEmpty())
            return;
        if (n > gridRows() - 1)
            addGridRow();
        const QString serverId = SettingsStore::get(key("ClientServerId", n));
        cell(n, 1)->setText(n.toString());
        cell(n, 2)->setText(userId);
        cell(n, 3)->setText(serverId);
        cell(n, 4)->setText(SettingsStore::get(key("ClientNotes", n)));
        if (SettingsStore::get(key("Selected", n)) != QLatin1String("Y")) {
            markRow(n, picUnC);
            continue;
        }
        // Every "Y" row is marked; the last one read is the destination.
        markRow(n, picC);
        m_SelRow = n;
        setDestination(userId, serverId);
    }
}

void FrmClSrLst::DoSaveFg2DRow(Int16 row)
{
    SettingsStore::put(key("ClientUserId", row), cellText(row, 2));
    SettingsStore::put(key("ClientServerId", row), cellText(row, 3));
    SettingsStore::put(key("ClientNotes", row), cellText(row, 4));
    SettingsStore::put(key("Selected", row),
                       isRowSelected(row) ? QStringLiteral("Y") : QStringLiteral("N"));
}

bool FrmClSrLst::DoSelectFg2Row(Int16 row)
{
    // Only what is stored: a row half edited is not a destination yet.
    const QString userId = SettingsStore::get(key("ClientUserId", row));
    const QString serverId = SettingsStore::get(key("ClientServerId", row));
    if (row < 1 || row > gridRows() - 1 || userId.isEmpty() || serverId.trimmed().isEmpty())
        return false;
    for (int r = 1; r < gridRows(); ++r) {
        if (r != row && isRowSelected(r)) {
            markRow(r, picUnC);
            SettingsStore::put(key("Selected", r), QStringLiteral("N"));
        }
    }
    markRow(row, picC);
    SettingsStore::put(key("Selected", row), QStringLiteral("Y"));
    m_SelRow = row;
    setDestination(userId, serverId);
    return true;
}

QRect FrmClSrLst::currentCellRect(QTableWidget* grid, QWidget* editor) const
{
    const QRect r = grid->visualRect(grid->currentIndex());
    return QRect(grid->viewport()->mapTo(editor->parentWidget(), r.topLeft()), r.size());
}

void FrmClSrLst::MSHFlexGridEdit(QTableWidget* grid, QLineEdit* editor, int KeyAscii)
{
    const QRect r = currentCellRect(grid, editor);
    editor->setGeometry(r.x(), r.y(), r.width() - twips(8), r.height() - twips(8));
    if (KeyAscii > 32 || KeyAscii < 0) {
        editor->setText(typedText(KeyAscii));
        editor->setCursorPosition(int(editor->text().size()));
    } else {
        const QTableWidgetItem* item = grid->currentItem();
        editor->setText(item ? item->text() : QString());
        editor->selectAll();
    }
    editor->setVisible(true);
    editor->setEnabled(true);
    editor->raise();
    editor->setFocus();
}

void FrmClSrLst::MSHFlexGridEditC(QTableWidget* grid, QComboBox* combo, int KeyAscii)
{
    if (KeyAscii > 32 || KeyAscii < 0) {
        // A typed character picks the first server starting with it, as typing in the list does.
        combo->setCurrentIndex(combo->findText(typedText(KeyAscii), Qt::MatchStartsWith));
    } else {
        const QTableWidgetItem* item = grid->currentItem();
        combo->setCurrentIndex(item ? combo->findText(item->text()) : -1);
    }
    const QRect r = currentCellRect(grid, combo);
    combo->setGeometry(r.x(), r.y(), r.width() - twips(8), combo->height());
    combo->setVisible(true);
    combo->raise();
    combo->setFocus();
}

namespace
{
// Enter gives the focus back to the grid, Escape too after dropping the
// edit; both keys are then swallowed. False for any other key.
bool leaveEditor(QTableWidget* grid, QWidget* editor, int& KeyCode)
{
    if (KeyCode != vbKeyEscape && KeyCode != vbKeyReturn)
        return false;
    if (KeyCode == vbKeyEscape)
        editor->hide();
    grid->setFocus();
    KeyCode = 0;
    return true;
}
} // namespace

void FrmClSrLst::EditKeyCode(QTableWidget* grid, QLineEdit* editor, int& KeyCode, int Shift)
{
    Q_UNUSED(Shift);
    if (!leaveEditor(grid, editor, KeyCode) && (KeyCode == vbKeyUp || KeyCode == vbKeyDown))
        KeyCode = 0; // the editor stays on its cell
}

void FrmClSrLst::EditKeyCodeC(QTableWidget* grid, QComboBox* combo, int& KeyCode, int Shift)
{
    Q_UNUSED(Shift);
    leaveEditor(grid, combo, KeyCode);
}

void FrmClSrLst::FG2_KeyPress(int& KeyAscii)
{
    // The grid keeps the user on his path, whatever cell the arrows or the mouse left it on.
    setGridCell(m_CurRow, m_CurCol);
    if (m_CurCol == 2 || m_CurCol == 4)
        MSHFlexGridEdit(FG2, TxtEdit, KeyAscii);
    else if (m_CurCol == 3)
        MSHFlexGridEditC(FG2, Combo1, KeyAscii);
}

void FrmClSrLst::FG2_DblClick()
{
    int KeyAscii = 32;
    FG2_KeyPress(KeyAscii);
}

void FrmClSrLst::FG2_Click()
{
    // A user id that was not looked up yet is not left by the mouse.
    if (m_CurCol == 2)
        FG2->setCurrentCell(m_CurRow - 1, FG2->currentColumn());
}

void FrmClSrLst::Fg2_GotFocus()
{
    if (FG2->currentColumn() == 0)
        return;
    setGridCell(m_CurRow, m_CurCol);
    if (m_CurCol == 3 && Combo1->isVisible())
        commitServerCell();
    else if (m_CurCol == 4 && TxtEdit->isVisible())
        commitNotesCell();
    else if (m_CurCol == 2 && TxtEdit->isVisible())
        lookUpUserServers();
}

void FrmClSrLst::commitServerCell()
{
    Combo1->hide();
    if (Combo1->currentIndex() < 0) {
        MsgBox(QStringLiteral("Server-Id not selected properly..."));
        return;
    }
    cell(m_CurRow, 3)->setText(Combo1->currentText());
    m_CurCol = 4;
    int KeyAscii = 32;
    FG2_KeyPress(KeyAscii);
}

void FrmClSrLst::commitNotesCell()
{
    TxtEdit->hide();
    cell(m_CurRow, 4)->setText(TxtEdit->text());
    if (m_SelRow == 0) {
        markRow(m_CurRow, picC);
        m_SelRow = m_CurRow;
        setDestination(cellText(m_CurRow, 2), cellText(m_CurRow, 3));
    } else if (!isRowSelected(m_CurRow)) {
        markRow(m_CurRow, picUnC);
    }
    DoSaveFg2DRow(m_CurRow);
    ++m_CurRow;
    m_CurCol = 2;
    if (m_CurRow > gridRows() - 1) {
        addGridRow();
        cell(m_CurRow, 1)->setText(m_CurRow.toString());
    }
    setGridCell(m_CurRow, 2);
}

void FrmClSrLst::lookUpUserServers()
{
    TxtEdit->hide();
    // The cell is filled by the answer.
    UcCloudSrvr1->setUcCloudUserId(TxtEdit->text());
    UcCloudSrvr1->UcFindClientInfo();
}

void FrmClSrLst::txtEdit_KeyDown(int& KeyCode, int Shift)
{
    EditKeyCode(FG2, TxtEdit, KeyCode, Shift);
}

void FrmClSrLst::TxtEdit_KeyPress(int& KeyAscii)
{
    if (KeyAscii == 13)
        KeyAscii = 0; // no beep
}

void FrmClSrLst::Combo1_KeyDown(int& KeyCode, int Shift)
{
    EditKeyCodeC(FG2, Combo1, KeyCode, Shift);
}

void FrmClSrLst::Combo1_KeyPress(int& KeyAscii)
{
    if (KeyAscii == 13)
        KeyAscii = 0; // no beep
}

void FrmClSrLst::Combo1_GotFocus()
{
    Combo1->showPopup();
    // Nothing chosen shows nothing highlighted, so Enter alone chooses nothing.
    if (Combo1->currentIndex() < 0)
        Combo1->view()->setCurrentIndex(QModelIndex());
}

void FrmClSrLst::UcCloudSrvr1_ClientInfoReturn(QString& ClientServerId, QString& ClientServerList)
{
    if (ClientServerList.isEmpty()) {
        MsgBox(QStringLiteral("Server List Not Found..."));
        return;
    }
    cell(m_CurRow, 2)->setText(ClientServerId);
    Combo1->clear();
    Int16 count;
    for (const QString& part : ClientServerList.split(u',')) {
        if (part.trimmed().isEmpty() || isInstallationId(part))
            continue;
        Combo1->addItem(part);
        ++count;
    }
    Combo1->setCurrentIndex(-1); // nothing chosen yet
    if (count == 0) {
        cell(m_CurRow, 2)->setText(QString());
        MsgBox(QStringLiteral("No Server found for this User..."));
        return;
    }
    m_CurCol = 3;
    int KeyAscii = 32;
    FG2_KeyPress(KeyAscii);
}

bool FrmClSrLst::popupKey(QKeyEvent* k)
{
    // Enter or Escape in the open list end the choice as they do on the closed list.
    int KeyCode = vbKeyCode(k);
    if (KeyCode != vbKeyReturn && KeyCode != vbKeyEscape)
        return false;
    if (KeyCode == vbKeyReturn)
        Combo1->setCurrentIndex(Combo1->view()->currentIndex().row());
    Combo1->hidePopup();
    RunGuarded([&] { Combo1_KeyDown(KeyCode, int(k->modifiers())); });
    return true;
}

bool FrmClSrLst::eventFilter(QObject* watched, QEvent* event)
{
    switch (event->type()) {
    case QEvent::KeyPress: {
        auto* k = static_cast<QKeyEvent*>(event);
        int KeyAscii = keyAscii(k);
        if (watched == FG2) {
            if (KeyAscii < 0)
                return false;
            RunGuarded([&] { FG2_KeyPress(KeyAscii); });
            return true;
        }
        if (watched == Combo1->view())
            return popupKey(k);
        if (watched != TxtEdit && watched != Combo1)
            return false;
        int KeyCode = vbKeyCode(k);
        RunGuarded([&] {
            if (watched == TxtEdit)
                txtEdit_KeyDown(KeyCode, int(k->modifiers()));
            else
                Combo1_KeyDown(KeyCode, int(k->modifiers()));
        });
        if (KeyCode == 0)
            return true;
        if (KeyAscii >= 0) {
            RunGuarded([&] {
                if (watched == TxtEdit)
                    TxtEdit_KeyPress(KeyAscii);
                else
                    Combo1_KeyPress(KeyAscii);
            });
            return KeyAscii == 0;
        }
        return false;
    }
    case QEvent::FocusIn: {
        if (watched == FG2)
            RunGuarded([this] { Fg2_GotFocus(); });
        // Not when the list hands the focus back on closing, or it would open again.
        else if (watched == Combo1 &&
                 static_cast<QFocusEvent*>(event)->reason() != Qt::PopupFocusReason)
            RunGuarded([this] { Combo1_GotFocus(); });
        return false;
    }
    case QEvent::MouseButtonDblClick: {
        if (watched != FG2->viewport())
            return false;
        const QModelIndex index =
            FG2->indexAt(static_cast<QMouseEvent*>(event)->position().toPoint());
        // The Sr cell of a stored row chooses that row; elsewhere it is a space.
        bool chosen = false;
        if (index.isValid() && index.column() == 1)
            RunGuarded([&] { chosen = DoSelectFg2Row(index.row() + 1); });
        if (!chosen)
            RunGuarded([this] { FG2_DblClick(); });
        return true;
    }
    default:
        return false;
    }
}
