#include "shell/NotificationCenter.h"

#include <gtest/gtest.h>

namespace {

TEST(NotificationCenterTest, DeliversByNameInOrderWithPayload)
{
    NotificationCenter center;
    QStringList calls;
    int a = 0, b = 0;
    center.addObserver(&a, QStringLiteral("showInfoMessage"), [&](const QVariantMap &info) {
        calls << QStringLiteral("a:") + info.value(QStringLiteral("message")).toString();
    });
    center.addObserver(&b, QStringLiteral("showInfoMessage"), [&](const QVariantMap &) { calls << QStringLiteral("b"); });
    center.addObserver(&b, QStringLiteral("other"), [&](const QVariantMap &) { calls << QStringLiteral("other"); });

    center.post(QStringLiteral("showInfoMessage"), {{QStringLiteral("message"), QStringLiteral("hi")}});
    EXPECT_EQ(calls, (QStringList{QStringLiteral("a:hi"), QStringLiteral("b")}));
}

TEST(NotificationCenterTest, RemovalByOwnerAndByName)
{
    NotificationCenter center;
    int owner = 0;
    int count = 0;
    center.addObserver(&owner, QStringLiteral("x"), [&](const QVariantMap &) { ++count; });
    center.addObserver(&owner, QStringLiteral("y"), [&](const QVariantMap &) { ++count; });
    center.removeObserver(&owner, QStringLiteral("x"));
    center.post(QStringLiteral("x"));
    center.post(QStringLiteral("y"));
    EXPECT_EQ(count, 1);
    center.removeObserver(&owner);
    center.post(QStringLiteral("y"));
    EXPECT_EQ(count, 1);
}

TEST(NotificationCenterTest, ObserverRemovedDuringDeliveryIsNotCalledAfterwards)
{
    NotificationCenter center;
    int first = 0, second = 0;
    int secondCalls = 0;
    center.addObserver(&first, QStringLiteral("n"), [&](const QVariantMap &) {
        center.removeObserver(&first);
        center.removeObserver(&second);
    });
    center.addObserver(&second, QStringLiteral("n"), [&](const QVariantMap &) { ++secondCalls; });
    center.post(QStringLiteral("n"));
    center.post(QStringLiteral("n"));
    EXPECT_EQ(secondCalls, 0);
}

} // namespace
