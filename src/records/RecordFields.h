#pragma once

#include <QDateTime>
#include <QJsonValue>
#include <QLatin1StringView>
#include <QString>
#include <QVariant>

#include <cmath>
#include <limits>
#include <variant>

// One stored field of a plain record: its name in files and a pointer to the
// member. A record type's field list is what the results file and its checks
// walk, so a new member is one new line there.
template <typename Record>
struct RecordField
{
    using Member = std::variant<QString Record::*, float Record::*, double Record::*, qint64 Record::*, int Record::*,
                                bool Record::*, QDateTime Record::*, QVariant Record::*>;
    QLatin1StringView name;
    Member member;
};

namespace RecordFields {

// JSON of a float or double: a number when finite, else its text ("nan",
// "inf", "-inf"), which JSON numbers cannot hold.
template <typename Real>
QJsonValue realToJson(Real value)
{
    if (std::isfinite(value))
        return double(value);
    return QString::number(double(value));
}

template <typename Real>
bool realFromJson(const QJsonValue &json, Real &out)
{
    if (json.isDouble()) {
        const double value = json.toDouble();
        // A double that does not fit a float is not a value we wrote.
        if constexpr (std::is_same_v<Real, float>) {
            if (std::isfinite(value) && std::abs(value) > double(std::numeric_limits<float>::max()))
                return false;
        }
        out = Real(value);
        return true;
    }
    const QString text = json.toString();
    if (text == QLatin1String("nan") || text == QLatin1String("-nan"))
        out = std::numeric_limits<Real>::quiet_NaN();
    else if (text == QLatin1String("inf"))
        out = std::numeric_limits<Real>::infinity();
    else if (text == QLatin1String("-inf"))
        out = -std::numeric_limits<Real>::infinity();
    else
        return false;
    return true;
}

inline bool integerFromJson(const QJsonValue &json, qint64 &out)
{
    if (!json.isDouble())
        return false;
    // toInteger gives the default for a fraction or a value beyond 64 bits;
    // the smallest integer is the one default that can also be a value.
    constexpr qint64 none = std::numeric_limits<qint64>::min();
    const qint64 value = json.toInteger(none);
    if (value == none && json.toDouble() != double(none))
        return false;
    out = value;
    return true;
}

// One value of a member's type. A null string, an invalid date and an
// empty variant are written as null, so "nil" and "" stay apart.
template <typename T>
QJsonValue valueToJson(const T &value)
{
    if constexpr (std::is_same_v<T, QString>)
        return value.isNull() ? QJsonValue(QJsonValue::Null) : QJsonValue(value);
    else if constexpr (std::is_same_v<T, float> || std::is_same_v<T, double>)
        return realToJson(value);
    else if constexpr (std::is_same_v<T, QDateTime>)
        return value.isValid() ? QJsonValue(value.toUTC().toString(Qt::ISODateWithMs)) : QJsonValue(QJsonValue::Null);
    else if constexpr (std::is_same_v<T, QVariant>)
        return value.isValid() ? QJsonValue::fromVariant(value) : QJsonValue(QJsonValue::Null);
    else
        return QJsonValue(value);
}

// Sets the value from JSON; false when the JSON has the wrong type for it.
template <typename T>
bool valueFromJson(const QJsonValue &json, T &value)
{
    if constexpr (std::is_same_v<T, QString>) {
        if (json.isNull())
            value = QString();
        else if (json.isString())
            value = json.toString().isNull() ? QString(QLatin1String("")) : json.toString();
        else
            return false;
        return true;
    } else if constexpr (std::is_same_v<T, float> || std::is_same_v<T, double>) {
        return realFromJson(json, value);
    } else if constexpr (std::is_same_v<T, bool>) {
        if (!json.isBool())
            return false;
        value = json.toBool();
        return true;
    } else if constexpr (std::is_same_v<T, QDateTime>) {
        if (json.isNull()) {
            value = QDateTime();
            return true;
        }
        const QDateTime date = QDateTime::fromString(json.toString(), Qt::ISODateWithMs);
        if (!date.isValid())
            return false;
        value = date;
        return true;
    } else if constexpr (std::is_same_v<T, QVariant>) {
        value = json.isNull() ? QVariant() : json.toVariant();
        return !json.isUndefined();
    } else {
        qint64 number = 0;
        if (!integerFromJson(json, number))
            return false;
        if (number < qint64(std::numeric_limits<T>::min()) || number > qint64(std::numeric_limits<T>::max()))
            return false;
        value = T(number);
        return true;
    }
}

// Whether two values are the same (NaN equals NaN, so that a stored NaN
// reads back as itself; nil and "" differ).
template <typename T>
bool sameValue(const T &x, const T &y)
{
    if constexpr (std::is_same_v<T, float> || std::is_same_v<T, double>)
        return (std::isnan(x) && std::isnan(y)) || x == y;
    else if constexpr (std::is_same_v<T, QString>)
        return x.isNull() == y.isNull() && x == y;
    else
        return x == y;
}

template <typename Record>
QJsonValue toJson(const Record &record, const typename RecordField<Record>::Member &member)
{
    return std::visit([&record](auto pointer) { return valueToJson(record.*pointer); }, member);
}

// Sets the member from the JSON value; false when the value has the wrong
// type for it.
template <typename Record>
bool fromJson(Record &record, const typename RecordField<Record>::Member &member, const QJsonValue &json)
{
    return std::visit([&record, &json](auto pointer) { return valueFromJson(json, record.*pointer); }, member);
}

template <typename Record>
bool equal(const Record &a, const Record &b, const typename RecordField<Record>::Member &member)
{
    return std::visit([&a, &b](auto pointer) { return sameValue(a.*pointer, b.*pointer); }, member);
}

} // namespace RecordFields
