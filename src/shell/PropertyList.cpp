#include "shell/PropertyList.h"

#include <QDateTime>
#include <QTimeZone>

#include <plist/plist.h>

#include <cstdlib>

namespace {

// Property-list dates count seconds from 2001-01-01 00:00:00 UTC.
const QDateTime kPlistEpoch(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC);

QVariant toVariant(plist_t node, int depth)
{
    // Nesting deeper than any real list is refused rather than recursed into.
    if (!node || depth > 64)
        return {};
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        uint8_t v = 0;
        plist_get_bool_val(node, &v);
        return bool(v);
    }
    case PLIST_UINT: {
        uint64_t v = 0;
        plist_get_uint_val(node, &v);
        return qint64(v);
    }
    case PLIST_REAL: {
        double v = 0;
        plist_get_real_val(node, &v);
        return v;
    }
    case PLIST_STRING:
    case PLIST_KEY: {
        char *v = nullptr;
        plist_get_string_val(node, &v);
        QString s = QString::fromUtf8(v ? v : "");
        std::free(v);
        return s;
    }
    case PLIST_DATA: {
        char *v = nullptr;
        uint64_t len = 0;
        plist_get_data_val(node, &v, &len);
        QByteArray bytes(v, qsizetype(len));
        std::free(v);
        return bytes;
    }
    case PLIST_DATE: {
        int32_t sec = 0, usec = 0;
        plist_get_date_val(node, &sec, &usec);
        return kPlistEpoch.addMSecs(qint64(sec) * 1000 + usec / 1000);
    }
    case PLIST_ARRAY: {
        QVariantList list;
        const uint32_t n = plist_array_get_size(node);
        for (uint32_t i = 0; i < n; ++i)
            list.append(toVariant(plist_array_get_item(node, i), depth + 1));
        return list;
    }
    case PLIST_DICT: {
        QVariantMap map;
        plist_dict_iter it = nullptr;
        plist_dict_new_iter(node, &it);
        for (;;) {
            char *key = nullptr;
            plist_t value = nullptr;
            plist_dict_next_item(node, it, &key, &value);
            if (!key)
                break;
            map.insert(QString::fromUtf8(key), toVariant(value, depth + 1));
            std::free(key);
        }
        std::free(it);
        return map;
    }
    default:
        return {};
    }
}

plist_t fromVariant(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
        return plist_new_bool(value.toBool());
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
    case QMetaType::ULongLong:
        return plist_new_uint(uint64_t(value.toLongLong()));
    case QMetaType::Double:
    case QMetaType::Float:
        return plist_new_real(value.toDouble());
    case QMetaType::QByteArray: {
        const QByteArray b = value.toByteArray();
        return plist_new_data(b.constData(), uint64_t(b.size()));
    }
    case QMetaType::QDateTime: {
        const qint64 ms = kPlistEpoch.msecsTo(value.toDateTime());
        return plist_new_date(int32_t(ms / 1000), int32_t((ms % 1000) * 1000));
    }
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        plist_t array = plist_new_array();
        for (const QVariant &item : value.toList())
            plist_array_append_item(array, fromVariant(item));
        return array;
    }
    case QMetaType::QVariantMap: {
        plist_t dict = plist_new_dict();
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            plist_dict_set_item(dict, it.key().toUtf8().constData(), fromVariant(it.value()));
        return dict;
    }
    default:
        return plist_new_string(value.toString().toUtf8().constData());
    }
}

} // namespace

namespace PropertyList {

std::optional<QVariant> fromXml(const QByteArray &xml)
{
    // XML forbids NUL characters. libplist still takes a raw NUL byte into a
    // string or key, and then aborts on an assertion when the value is read.
    if (xml.isEmpty() || xml.contains('\0'))
        return std::nullopt;
    plist_t root = nullptr;
    plist_from_xml(xml.constData(), uint32_t(xml.size()), &root);
    if (!root)
        return std::nullopt;
    QVariant result = toVariant(root, 0);
    plist_free(root);
    return result;
}

QByteArray toXml(const QVariant &value)
{
    plist_t root = fromVariant(value);
    char *xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(root, &xml, &length);
    QByteArray result(xml, qsizetype(length));
    plist_to_xml_free(xml);
    plist_free(root);
    return result;
}

} // namespace PropertyList
