// The printer list, its on-line check and the printer tools.
#include "server/frmmain.h"

#include "common/runtimeerror.h"
#include "common/settings.h"
#include "convert/currentprinter.h"
#include "convert/printers.h"
#include "netscan/frmnetscan.h"
#include "platform/printertools.h"

#include <QEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPainter>
#include <QPixmap>
#include <QTableWidget>
#include <QTimer>
#include <functional>

namespace
{
constexpr int kLastPrinterRow = 100; // the table's fixed bound
const QColor kWhite(0xFF, 0xFF, 0xFF);
const QColor kYellow(0xFF, 0xFF, 0x00);

// Key and mouse releases of a widget, as the window's handlers want them.
class ReleaseHook : public QObject
{
public:
    ReleaseHook(QObject* parent, QEvent::Type type, std::function<void()> handler)
        : QObject(parent), m_type(type), m_handler(std::move(handler))
    {
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == m_type)
            m_handler();
        return QObject::eventFilter(watched, event);
    }

private:
    QEvent::Type m_type;
    std::function<void()> m_handler;
};

// Selects the item showing this text, as a list box does when its text is set.
void setListText(QListWidget* list, const QString& text)
{
    for (int i = 0; i < list->count(); ++i)
        if (list->item(i)->text() == text) {
            list->setCurrentRow(i);
            return;
        }
}

QPixmap statusPicture(const QColor& colour, bool crossed)
{
    QPixmap pixmap(16, 16);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(colour.darker(150));
    p.setBrush(colour);
    p.drawEllipse(QRectF(2.5, 2.5, 11, 11));
    if (crossed) {
        p.setPen(QPen(Qt::white, 2));
        p.drawLine(QPointF(5.5, 5.5), QPointF(10.5, 10.5));
        p.drawLine(QPointF(10.5, 5.5), QPointF(5.5, 10.5));
    }
    return pixmap;
}

QTableWidgetItem* cell(QTableWidget* grid, int row, int column)
{
    QTableWidgetItem* item = grid->item(row, column);
    if (!item) {
        item = new QTableWidgetItem;
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
        grid->setItem(row, column, item);
    }
    return item;
}
} // namespace

QString frmMain::List2Text() const
{
    const QListWidgetItem* item = List2->currentItem();
    return item ? item->text() : QString();
}

void frmMain::connectPrinterList()
{
    auto* mouse =
        new ReleaseHook(List2, QEvent::MouseButtonRelease, Guarded([this] { List2_MouseUp(); }));
    List2->viewport()->installEventFilter(mouse);
    auto* keys = new ReleaseHook(List2, QEvent::KeyRelease, Guarded([this] { List2_KeyUp(); }));
    List2->installEventFilter(keys);
    picC->setPixmap(statusPicture(QColor(0x2E, 0xA0, 0x43), false));
    picUnC->setPixmap(statusPicture(QColor(0xC6, 0x28, 0x28), true));
}

void frmMain::PopulateListControlWithPrinters(QListWidget* ListControl)
{
    ListControl->clear();
    const QStringList printers = installedPrinterNames();
    FG2->setColumnCount(2);
    // The remembered name selects its printer whatever its case and blanks.
    if (!printers.isEmpty()) {
        if (m_PrinterName.trimmed().isEmpty())
            m_PrinterName = CurrentPrinter::DeviceName();
        const QString wanted = m_PrinterName.trimmed().toUpper();
        for (const QString& deviceName : printers) {
            ListControl->addItem(deviceName);
            if (!wanted.isEmpty() && wanted == deviceName.trimmed().toUpper())
                setListText(ListControl, deviceName);
        }
    } else {
        ListControl->addItem(QStringLiteral("(No Printer Installed)"));
    }
    fillPrinterGrid(ListControl);
    FG2_RowColChange();
    Timer1->start(); // the on-line states, once the window shows
}

void frmMain::fillPrinterGrid(QListWidget* ListControl)
{
    // The grid mirrors the list; its own row changes are not handled meanwhile.
    m_InRowChange = true;
    FG2->clearContents();
    FG2->setColumnCount(2);
    FG2->setRowCount(List2->count());
    for (int i = 0; i < ListControl->count(); ++i) {
        QTableWidgetItem* name = cell(FG2, i, 1);
        name->setText(ListControl->item(i)->text());
        cell(FG2, i, 0);
        if (i + 1 > kLastPrinterRow) {
            m_InRowChange = false;
            RaiseError(rt::SubscriptOutOfRange);
        }
        m_PrinterTable[size_t(i + 1)] = {name->text(), QString()};
    }
    // The chosen printer's row is the grid's current row.
    m_CurGridRow = ListControl->currentRow() + 1;
    FG2->setColumnWidth(0, twips(300));
    FG2->setColumnWidth(1, twips(3800));
    if (m_CurGridRow > 0)
        FG2->setCurrentCell(m_CurGridRow - 1, 1);
    else
        FG2->setCurrentCell(-1, -1);
    m_PrevGridRow = 0;
    m_InRowChange = false;
}

void frmMain::FG2_RowColChange()
{
    if (m_InRowChange)
        return;
    m_InRowChange = true;
    struct Reset {
        bool& flag;
        ~Reset() { flag = false; }
    } reset{m_InRowChange};

    choosePrinterRow(FG2->currentRow() + 1);
}

void frmMain::choosePrinterRow(Int16 newRow)
{
    // The grid's current row chooses the printer of the list, as a click would.
    if (m_PrevGridRow != 0 && m_PrevGridRow <= FG2->rowCount())
        cell(FG2, m_PrevGridRow - 1, 1)->setBackground(kWhite);
    if (newRow != 0) {
        QTableWidgetItem* item = cell(FG2, newRow - 1, 1);
        setListText(List2, item->text());
        List2_MouseUp();
        item->setBackground(kYellow);
        TxtEdit->setGeometry(FG2->visualItemRect(item));
    }
    m_PrevGridRow = newRow;
}

void frmMain::List2_MouseUp()
{
    SettingsStore::put(QStringLiteral("Name"), List2Text());
}

void frmMain::List2_KeyUp()
{
    List2_MouseUp();
}

void frmMain::Timer1_Timer()
{
    Timer1->stop();
    QMap<QString, bool> states;
    for (const auto& [name, offline] : PrinterTools::offlineStates())
        states.insert(QString::fromStdWString(name), offline);
    markPrinterStates(states);
}

void frmMain::markPrinterStates(const QMap<QString, bool>& states)
{
    // Only rows whose state changed get a new picture.
    for (auto it = states.cbegin(); it != states.cend(); ++it) {
        const QString workOffline = it.value() ? QStringLiteral("True") : QStringLiteral("False");
        for (int r = 1; r <= FG2->rowCount() && r <= kLastPrinterRow; ++r) {
            PrinterRow& entry = m_PrinterTable[size_t(r)];
            if (it.key() != entry.name || workOffline == entry.status)
                continue;
            cell(FG2, r - 1, 0)
                ->setData(Qt::DecorationRole, it.value() ? picUnC->pixmap() : picC->pixmap());
            entry.status = workOffline;
        }
    }
}

void frmMain::Command9_Click()
{
    Timer1->start();
}

void frmMain::Command3_Click()
{
    // One scan window, kept once made.
    auto* scan = findChild<FrmNetScan*>(QString(), Qt::FindDirectChildrenOnly);
    if (!scan)
        scan = new FrmNetScan(this);
    scan->show();
    scan->raise();
}

void frmMain::Command4_Click()
{
    PrinterTools::showProperties(List2Text().toStdWString());
}

void frmMain::Command8_Click()
{
    PrinterTools::showQueue(List2Text().toStdWString());
}

void frmMain::Command7_Click()
{
    PrinterTools::showPrinterList();
}

void frmMain::Command6_Click()
{
    const QString folder = pathOfFile(TxtPath->text());
    if (!folder.trimmed().isEmpty())
        PrinterTools::openFolder(folder.toStdWString());
}
