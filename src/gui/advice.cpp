#include "advice.h"

#include "messages.h"

#include <QRegularExpression>
#include <QStringList>

namespace {

/** What the table writes for it, with … for what differs from case to case, as a pattern. */
QRegularExpression patternOf(const QString& written) {
    QStringList parts = written.split(QString::fromUtf8("…"));
    for (QString& part : parts) {
        part = QRegularExpression::escape(part);
    }
    return QRegularExpression("^(CAN: |Serial: |SerialV2: )?" + parts.join(".*") + "$");
}

/** The cell; where it refers to the row above, with what is said there. */
QString resolve(const QString& cell, const QString& above) {
    for (const QString& reference : {QString("the same"), QString("as above")}) {
        if (cell.startsWith(reference)) {
            return above + cell.mid(reference.size());
        }
    }
    return cell;
}

QString asSentence(QString text) {
    text.remove('`');
    if (!text.isEmpty()) {
        text[0] = text[0].toUpper();
        text += text.endsWith('?') ? "" : ".";
    }
    return text;
}

} // namespace

QString advice::about(const QString& text) {
    static const QRegularExpression ROW("^\\| `([^`]+)` \\|.*\\| *([^|]*)\\|$");
    QString said;
    for (const QString& line : QString::fromUtf8(MESSAGES).split('\n')) {
        const QRegularExpressionMatch row = ROW.match(line);
        if (!row.hasMatch()) {
            continue;
        }
        said = resolve(row.captured(2).trimmed(), said);
        if (patternOf(row.captured(1)).match(text).hasMatch()) {
            return asSentence(said);
        }
    }
    return {};
}
