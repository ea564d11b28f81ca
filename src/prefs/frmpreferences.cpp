#include "prefs/frmpreferences.h"

#include "cloud/cloudcheck.h"
#include "cloud/cloudshare.h"
#include "common/paths.h"
#include "common/runtimeerror.h"
#include "common/settings.h"
#include "dispatch/jobfiles.h"
#include "dispatch/jobnaming.h"
#include "prefs/preferences.h"
#include "server/programids.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSslCertificate>
#include <QTabWidget>
#include <QVBoxLayout>

namespace
{
QString textOf(const QWidget* w)
{
    if (const auto* e = qobject_cast<const QLineEdit*>(w))
        return e->text();
    if (const auto* c = qobject_cast<const QCheckBox*>(w))
        return c->isChecked() ? QStringLiteral("true") : QStringLiteral("false");
    if (const auto* b = qobject_cast<const QComboBox*>(w))
        return b->currentText();
    if (const auto* p = qobject_cast<const QPlainTextEdit*>(w))
        return p->toPlainText();
    return {};
}
} // namespace

FrmPreferences::FrmPreferences(const QMap<QString, QString>& running, QWidget* parent)
    : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Quorvel Preferences"));
    build();
    for (const Prefs::Field& f : Prefs::fields())
        setValue(f.key, running.contains(f.key) ? running.value(f.key) : Prefs::current(f.key));
    m_loaded = values();
    refreshPreview();
}

void FrmPreferences::build()
{
    auto* root = new QVBoxLayout(this);
    tabPages = new QTabWidget(this);
    root->addWidget(tabPages);
    QMap<Prefs::Page, QFormLayout*> forms;
    for (const Prefs::Page page :
         {Prefs::Page::Receiving, Prefs::Page::Conversion, Prefs::Page::Names,
          Prefs::Page::AfterSaving, Prefs::Page::Cloud}) {
        auto* w = new QWidget(tabPages);
        forms[page] = new QFormLayout(w);
        tabPages->addTab(w, Prefs::pageTitle(page));
    }
    for (const Prefs::Field& f : Prefs::fields()) {
        QWidget* page = tabPages->widget(int(f.page));
        QWidget* editor = nullptr;
        QWidget* row = nullptr;
        switch (f.kind) {
        case Prefs::Kind::Check:
            editor = new QCheckBox(f.label, page);
            break;
        case Prefs::Kind::Choice: {
            auto* box = new QComboBox(page);
            box->addItems(f.choices);
            editor = box;
            connect(box, &QComboBox::currentTextChanged, this, [this] { validate(); });
            break;
        }
        case Prefs::Kind::Lines: {
            auto* lines = new QPlainTextEdit(page);
            lines->setPlaceholderText(f.hint);
            lines->setMaximumHeight(80);
            connect(lines, &QPlainTextEdit::textChanged, this, [this, key = f.key] { mark(key); });
            editor = lines;
            break;
        }
        default: {
            auto* line = new QLineEdit(page);
            line->setPlaceholderText(f.hint);
            if (f.kind == Prefs::Kind::Password)
                line->setEchoMode(QLineEdit::Password);
            connect(line, &QLineEdit::textChanged, this, [this, key = f.key] {
                mark(key);
                refreshPreview();
            });
            editor = line;
            if (f.kind == Prefs::Kind::Folder || f.kind == Prefs::Kind::File) {
                row = new QWidget(page);
                auto* h = new QHBoxLayout(row);
                h->setContentsMargins(0, 0, 0, 0);
                line->setParent(row);
                h->addWidget(line, 1);
                auto* pick = new QPushButton(QStringLiteral("..."), row);
                h->addWidget(pick);
                const bool folder = f.kind == Prefs::Kind::Folder;
                connect(pick, &QPushButton::clicked, this, Guarded([this, line, folder] {
                            const QString chosen =
                                folder
                                    ? QFileDialog::getExistingDirectory(this, QString(),
                                                                        line->text())
                                    : QFileDialog::getOpenFileName(this, QString(), line->text());
                            if (!chosen.isEmpty())
                                line->setText(QDir::toNativeSeparators(chosen));
                        }));
            }
        }
        }
        editor->setObjectName(f.key);
        m_editors.insert(f.key, editor);
        if (f.kind == Prefs::Kind::Check)
            forms[f.page]->addRow(editor);
        else
            forms[f.page]->addRow(f.label, row ? row : editor);
    }
    lblPreview = new QLabel(tabPages->widget(int(Prefs::Page::Names)));
    lblPreview->setWordWrap(true);
    lblPreview->setTextInteractionFlags(Qt::TextSelectableByMouse);
    forms[Prefs::Page::Names]->addRow(QStringLiteral("Preview"), lblPreview);
    forms[Prefs::Page::Names]->addRow(
        new QLabel(QStringLiteral("Tokens: {title} {user} {client} {host} {date} {time} {counter} "
                                  "{language}; / makes sub-folders."),
                   tabPages->widget(int(Prefs::Page::Names))));
    connect(qobject_cast<QComboBox*>(m_editors.value(Prefs::kAfterSave)),
            &QComboBox::currentTextChanged, this, [this] { mark(Prefs::kAfterSaveProgram); });

    QWidget* cloud = tabPages->widget(int(Prefs::Page::Cloud));
    cmdTest = new QPushButton(QStringLiteral("Test connection"), cloud);
    txtTest = new QPlainTextEdit(cloud);
    txtTest->setReadOnly(true);
    forms[Prefs::Page::Cloud]->addRow(cmdTest);
    forms[Prefs::Page::Cloud]->addRow(txtTest);
    connect(cmdTest, &QPushButton::clicked, this, Guarded([this] { cmdTest_Click(); }));

    lblProblem = new QLabel(this);
    lblProblem->setStyleSheet(QStringLiteral("color: #b00000"));
    lblProblem->setWordWrap(true);
    root->addWidget(lblProblem);
    buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    root->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &FrmPreferences::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &FrmPreferences::reject);
}

QMap<QString, QString> FrmPreferences::values() const
{
    QMap<QString, QString> v;
    for (auto it = m_editors.begin(); it != m_editors.end(); ++it)
        v.insert(it.key(), textOf(it.value()));
    return v;
}

void FrmPreferences::setValue(const QString& key, const QString& value)
{
    QWidget* w = m_editors.value(key);
    if (auto* e = qobject_cast<QLineEdit*>(w))
        e->setText(value);
    else if (auto* c = qobject_cast<QCheckBox*>(w))
        c->setChecked(Prefs::isTrue(value));
    else if (auto* b = qobject_cast<QComboBox*>(w))
        b->setCurrentText(value.trimmed().toLower());
    else if (auto* p = qobject_cast<QPlainTextEdit*>(w))
        p->setPlainText(value.split(u',', Qt::SkipEmptyParts).join(u'\n'));
}

bool FrmPreferences::mark(const QString& key)
{
    QWidget* w = m_editors.value(key);
    const QString why = Prefs::problem(key, textOf(w), values());
    w->setProperty("invalid", !why.isEmpty());
    w->setStyleSheet(why.isEmpty() ? QString() : QStringLiteral("background: #ffd8d8"));
    w->setToolTip(why);
    return why.isEmpty();
}

bool FrmPreferences::validate()
{
    QString first;
    for (const Prefs::Field& f : Prefs::fields())
        if (!mark(f.key) && first.isEmpty())
            first = f.key;
    if (first.isEmpty()) {
        lblProblem->clear();
        return true;
    }
    const Prefs::Field* f = Prefs::field(first);
    tabPages->setCurrentIndex(int(f->page));
    m_editors.value(first)->setFocus();
    lblProblem->setText(
        QStringLiteral("%1, %2: %3")
            .arg(Prefs::pageTitle(f->page), f->label, m_editors.value(first)->toolTip()));
    return false;
}

void FrmPreferences::accept()
{
    if (!validate())
        return;
    // Only what the person changed: defaults shown are not pinned into the settings.
    const QMap<QString, QString> now = values();
    QMap<QString, QString> changed;
    for (auto it = now.begin(); it != now.end(); ++it)
        if (m_loaded.value(it.key()).trimmed() != it.value().trimmed())
            changed.insert(it.key(), it.value());
    Prefs::save(changed);
    m_loaded = now;
    QDialog::accept();
    emit saved(changed);
}

void FrmPreferences::refreshPreview()
{
    const QString pattern = textOf(m_editors.value(JobNaming::kTemplateKey));
    if (const QString why = JobNaming::problem(pattern); !why.isEmpty()) {
        lblPreview->setText(why);
        return;
    }
    Job sample;
    sample.title = QStringLiteral("Quarterly report");
    sample.user = QStringLiteral("alice");
    sample.client = QStringLiteral("192.168.1.20");
    sample.received = QDateTime::currentDateTime();
    const QString base =
        JobNaming(pattern).templated()
            ? JobNaming(pattern).expand(sample,
                                        SettingsStore::get(JobNaming::kCounterKey).toLongLong() + 1)
            : jobBaseName(sample.received);
    const QString folder = textOf(m_editors.value(Prefs::kJobFolder)).trimmed();
    lblPreview->setText(QDir::toNativeSeparators(
        QDir(folder.isEmpty() ? Paths::jobFolder() : folder).filePath(base + ".pdf")));
}

void FrmPreferences::cmdTest_Click()
{
    // The form's share, before it is kept: the same check as --cloud-test.
    const QMap<QString, QString> v = values();
    CloudCheck::Share share = CloudCheck::configured();
    if (!v.value(CloudShare::kBaseUrlKey).trimmed().isEmpty())
        share.baseUrl = v.value(CloudShare::kBaseUrlKey).trimmed();
    if (!v.value(CloudShare::kUserKey).trimmed().isEmpty())
        share.user = v.value(CloudShare::kUserKey).trimmed();
    if (!v.value(Prefs::kPassword).isEmpty()) {
        share.password = v.value(Prefs::kPassword);
        share.locked = false;
    }
    const QString ca = v.value(CloudShare::kCaFileKey).trimmed();
    share.cas = ca.isEmpty() ? QList<QSslCertificate>() : QSslCertificate::fromPath(ca, QSsl::Pem);
    txtTest->clear();
    cmdTest->setEnabled(false);
    const ProgramIds ids = ProgramIds::load();
    CloudCheck check(share, ids.installationId, ids.userEMailId);
    connect(&check, &CloudCheck::line, txtTest, &QPlainTextEdit::appendPlainText);
    const bool passed = check.run();
    txtTest->appendPlainText(passed ? QStringLiteral("All checks passed.")
                                    : QStringLiteral("The check failed."));
    cmdTest->setEnabled(true);
}
