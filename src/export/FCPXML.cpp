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
        // Most values need no escaping; append those as they are.
        const bool plain = std::none_of(a.value.begin(), a.value.end(), [](QChar c) {
            return c == QLatin1Char('&') || c == QLatin1Char('<') || c == QLatin1Char('>') || c == QLatin1Char('"');
        });
        out.append(plain ? a.value : FCPXMLNode::escaped(a.value));
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
    return text().toUtf8();
}

void FCPXMLDocument::write(const QUrl &fileURL) const
{
    if (!fileURL.isLocalFile() || fileURL.toLocalFile().isEmpty())
        throw FileWriteError(
            QStringLiteral("cannot write %1: not a local file").arg(fileURL.toDisplayString()).toStdString());
    writeFileAtomically(fileURL.toLocalFile(), data());
}

} // namespace velum
