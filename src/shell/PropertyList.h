#pragma once

#include <QByteArray>
#include <QVariant>

#include <optional>

// XML property lists (libplist) as Qt values: dict ↔ QVariantMap (key order
// kept by QVariantMap's sorting), array ↔ QVariantList, string ↔ QString,
// integer ↔ qint64, real ↔ double, boolean ↔ bool, data ↔ QByteArray,
// date ↔ QDateTime.
namespace PropertyList {

// The root value, or nothing when the text is not a well-formed property list.
std::optional<QVariant> fromXml(const QByteArray &xml);

// An XML property list of the value; nested types as above.
QByteArray toXml(const QVariant &value);

} // namespace PropertyList
