#include "shell/PropertyList.h"

#include <gtest/gtest.h>

namespace {

TEST(PropertyListTest, RoundTripsNestedValues)
{
    const QVariantMap item{{QStringLiteral("interface"), QStringLiteral("eth0")},
                           {QStringLiteral("spnetwork_service_order"), qint64(0)},
                           {QStringLiteral("negative"), qint64(-3)},
                           {QStringLiteral("flag"), true}};
    const QVariantList root{QVariantMap{{QStringLiteral("_items"), QVariantList{item}}}};
    const std::optional<QVariant> back = PropertyList::fromXml(PropertyList::toXml(root));
    ASSERT_TRUE(back.has_value());
    const QVariantMap readItem =
        back->toList().value(0).toMap().value(QStringLiteral("_items")).toList().value(0).toMap();
    EXPECT_EQ(readItem.value(QStringLiteral("interface")).toString(), QStringLiteral("eth0"));
    EXPECT_EQ(readItem.value(QStringLiteral("spnetwork_service_order")).toLongLong(), 0);
    EXPECT_EQ(readItem.value(QStringLiteral("negative")).toLongLong(), -3);
    EXPECT_TRUE(readItem.value(QStringLiteral("flag")).toBool());
}

TEST(PropertyListTest, RefusesTextThatIsNotAPropertyList)
{
    for (const char *text : {"", "not xml", "<plist><dict><key>a</key>", "<html></html>"}) {
        SCOPED_TRACE(text);
        EXPECT_FALSE(PropertyList::fromXml(QByteArray(text)).has_value());
    }
}

} // namespace
