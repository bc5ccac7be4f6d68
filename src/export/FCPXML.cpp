#include "export/FCPXML.h"

#include "model/Json.h"

#include <QStringList>

#include <algorithm>

namespace velum {

FCPXMLNode &FCPXMLNode::add(const QString &attributeName, const QString &value)
{
    attributes.push_back(Attribute{attributeName, value});
    return *this;
}

std::optional<QString> FCPXMLNode::attribute(QStringView attributeName) const
{
    for (const auto &a : attributes) {
        if (a.name == attributeName)
            return a.value;
    }
    return std::nullopt;
}

QString FCPXMLNode::escaped(const QString &value)
{
    QString out = value;
    out.replace(QLatin1Char('&'), QLatin1String("&amp;"));
    out.replace(QLatin1Char('<'), QLatin1String("&lt;"));
    out.replace(QLatin1Char('>'), QLatin1String("&gt;"));
    out.replace(QLatin1Char('"'), QLatin1String("&quot;"));
    return out;
}

namespace {

// Most values need no escaping; those are appended as they are.
bool needsEscaping(const QString &value)
{
    return std::any_of(value.begin(), value.end(), [](QChar c) {
        return c == QLatin1Char('&') || c == QLatin1Char('<') || c == QLatin1Char('>') || c == QLatin1Char('"');
    });
}

// Appends a node and its children to one buffer, so that a deep tree is not
// copied once for every level it sits under.
void renderInto(QString &out, const FCPXMLNode &node, int indent)
{
    const qsizetype padding = 4 * qsizetype(std::max(indent, 0));
    out.append(QString(padding, QLatin1Char(' ')));
    out.append(QLatin1Char('<'));
    out.append(node.name);
    for (const auto &a : node.attributes) {
        out.append(QLatin1Char(' '));
        out.append(a.name);
        out.append(QLatin1String("=\""));
        out.append(needsEscaping(a.value) ? FCPXMLNode::escaped(a.value) : a.value);
        out.append(QLatin1Char('"'));
    }
    if (node.children.empty()) {
        out.append(QLatin1String("/>"));
        return;
    }
    out.append(QLatin1String(">\n"));
    for (std::size_t i = 0; i < node.children.size(); ++i) {
        if (i > 0)
            out.append(QLatin1Char('\n'));
        renderInto(out, node.children[i], indent + 1);
    }
    out.append(QLatin1Char('\n'));
    out.append(QString(padding, QLatin1Char(' ')));
    out.append(QLatin1String("</"));
    out.append(node.name);
    out.append(QLatin1Char('>'));
}

// The same text straight into UTF-8 bytes. Names and most values are
// ASCII and are copied byte for byte; any other value goes through Qt's
// encoder whole, as the text's own conversion would.
void appendUtf8(QByteArray &out, const QString &text)
{
    const qsizetype size = text.size();
    const qsizetype at = out.size();
    out.resize(at + size);
    char *to = out.data() + at;
    const QChar *from = text.constData();
    ushort any = 0;
    for (qsizetype i = 0; i < size; ++i) {
        any |= from[i].unicode();
        to[i] = static_cast<char>(from[i].unicode());
    }
    if (any >= 0x80) {
        out.truncate(at);
        out.append(text.toUtf8());
    }
}

void renderInto(QByteArray &out, const FCPXMLNode &node, int indent)
{
    const qsizetype padding = 4 * qsizetype(std::max(indent, 0));
    out.append(padding, ' ');
    out.append('<');
    appendUtf8(out, node.name);
    for (const auto &a : node.attributes) {
        out.append(' ');
        appendUtf8(out, a.name);
        out.append("=\"", 2);
        appendUtf8(out, needsEscaping(a.value) ? FCPXMLNode::escaped(a.value) : a.value);
        out.append('"');
    }
    if (node.children.empty()) {
        out.append("/>", 2);
        return;
    }
    out.append(">\n", 2);
    for (std::size_t i = 0; i < node.children.size(); ++i) {
        if (i > 0)
            out.append('\n');
        renderInto(out, node.children[i], indent + 1);
    }
    out.append('\n');
    out.append(padding, ' ');
    out.append("</", 2);
    appendUtf8(out, node.name);
    out.append('>');
}

} // namespace

QString FCPXMLNode::rendered(int indent) const
{
    QString out;
    renderInto(out, *this, indent);
    return out;
}

QString FCPXMLDocument::text() const
{
    return xmlDeclaration + QLatin1Char('\n') + doctype + QLatin1Char('\n') + root.rendered(0) + QLatin1Char('\n');
}

QByteArray FCPXMLDocument::data() const
{
    QByteArray out;
    appendUtf8(out, xmlDeclaration);
    out.append('\n');
    appendUtf8(out, doctype);
    out.append('\n');
    renderInto(out, root, 0);
    out.append('\n');
    return out;
}

void FCPXMLDocument::write(const QUrl &fileURL) const
{
    if (!fileURL.isLocalFile() || fileURL.toLocalFile().isEmpty())
        throw FileWriteError(
            QStringLiteral("cannot write %1: not a local file").arg(fileURL.toDisplayString()).toStdString());
    writeFileAtomically(fileURL.toLocalFile(), data());
}

} // namespace velum
