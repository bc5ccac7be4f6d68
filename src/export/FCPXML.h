#pragma once

// The FCPXML document as a plain tree, and the serialiser that gives it its
// one fixed text. No XML library writes the timeline: attribute order,
// indentation and escaping are decided here and nowhere else, so the same
// plan always gives the same bytes.

#include <QByteArray>
#include <QString>
#include <QStringView>
#include <QUrl>

#include <optional>
#include <vector>

namespace velum {

// One element. Attributes keep the order in which they were added, which is
// the order they are written in. Elements never hold text.
struct FCPXMLNode {
    struct Attribute {
        QString name;
        QString value;

        friend bool operator==(const Attribute &, const Attribute &) = default;
    };

    QString name;
    std::vector<Attribute> attributes;
    std::vector<FCPXMLNode> children;

    friend bool operator==(const FCPXMLNode &, const FCPXMLNode &) = default;

    // Appends an attribute at the end, after those already there.
    FCPXMLNode &add(const QString &attributeName, const QString &value);
    // The value of the first attribute of that name; none when there is none.
    std::optional<QString> attribute(QStringView attributeName) const;

    // The element's text at a nesting depth of `indent` levels, four blanks a
    // level. Without children it is one line, `<name a="v"/>`; with children
    // the opening tag, each child one level deeper on its own line, and the
    // closing tag at the element's own depth. No trailing newline.
    QString rendered(int indent = 0) const;

    // An attribute value as it stands between double quotes: "&", "<", ">"
    // and the double quote become entities, in that order; apostrophes and
    // everything else, non-ASCII letters included, stay as they are.
    static QString escaped(const QString &value);
};

// A whole FCPXML file: the two header lines and the root element.
struct FCPXMLDocument {
    // The first two lines of every file, each followed by a newline.
    static inline const QString xmlDeclaration = QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>");
    static inline const QString doctype = QStringLiteral("<!DOCTYPE fcpxml>");

    FCPXMLNode root;

    friend bool operator==(const FCPXMLDocument &, const FCPXMLDocument &) = default;

    // The file's full text: the declaration, the doctype, the root rendered
    // at depth 0, each followed by one newline.
    QString text() const;
    // The same text in UTF-8, as written to disk.
    QByteArray data() const;

    // Writes `data()` atomically to a local file: a temporary file beside
    // the target, renamed over it. The folder must exist. Throws
    // FileWriteError (model/Json.h) when the URL is not a local file or the
    // file system refuses.
    void write(const QUrl &fileURL) const;
};

} // namespace velum
