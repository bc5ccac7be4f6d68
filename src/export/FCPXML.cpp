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

QString FCPXMLNode::rendered(int indent) const
{
    const QString padding(4 * std::max(indent, 0), QLatin1Char(' '));
    QString out = padding + QLatin1Char('<') + name;
    for (const auto &a : attributes)
        out += QLatin1Char(' ') + a.name + QLatin1String("=\"") + escaped(a.value) + QLatin1Char('"');
    if (children.empty())
        return out + QLatin1String("/>");

    out += QLatin1String(">\n");
    QStringList lines;
    lines.reserve(qsizetype(children.size()));
    for (const auto &c : children)
        lines.push_back(c.rendered(indent + 1));
    out += lines.join(QLatin1Char('\n'));
    out += QLatin1Char('\n') + padding + QLatin1String("</") + name + QLatin1Char('>');
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
