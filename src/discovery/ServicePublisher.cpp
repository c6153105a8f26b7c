#include "discovery/ServicePublisher.h"

#include "discovery/AvahiConnection.h"

#include <avahi-client/client.h>
#include <avahi-client/publish.h>
#include <avahi-common/error.h>

// Trampoline with Avahi's exact callback type.
struct ServicePublisherGlue
{
    static void group(AvahiEntryGroup *group, AvahiEntryGroupState state, void *userdata)
    {
        static_cast<ServicePublisher *>(userdata)->groupStateChanged(group, state);
    }
};

ServicePublisher::ServicePublisher(AvahiConnection *connection, QObject *parent)
    : QObject(parent)
    , m_connection(connection)
{
}

int ServicePublisher::publish(const QString &name, const QString &type, const QString &domain, quint16 port)
{
    withdraw();
    AvahiEntryGroup *group = avahi_entry_group_new(m_connection->client(), &ServicePublisherGlue::group, this);
    if (!group)
        return avahi_client_errno(m_connection->client());
    const QByteArray name8 = name.toUtf8(), type8 = type.toUtf8(), domain8 = domain.toUtf8();
    // No AVAHI_PUBLISH_* renaming flag exists: a taken name stays a failure.
    int result = avahi_entry_group_add_service(group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, AvahiPublishFlags(0),
                                               name8.constData(), type8.constData(),
                                               domain8.isEmpty() ? nullptr : domain8.constData(), nullptr, port,
                                               nullptr);
    if (result == AVAHI_OK)
        result = avahi_entry_group_commit(group);
    if (result != AVAHI_OK) {
        avahi_entry_group_free(group);
        return result;
    }
    m_group = group;
    return AVAHI_OK;
}

void ServicePublisher::withdraw()
{
    if (m_group)
        avahi_entry_group_free(m_group);
    m_group = nullptr;
}

void ServicePublisher::groupStateChanged(AvahiEntryGroup *group, int state)
{
    if (group != m_group)
        return;
    if (state == AVAHI_ENTRY_GROUP_ESTABLISHED) {
        emit established();
    } else if (state == AVAHI_ENTRY_GROUP_COLLISION || state == AVAHI_ENTRY_GROUP_FAILURE) {
        const int avahiError = state == AVAHI_ENTRY_GROUP_COLLISION ? int(AVAHI_ERR_COLLISION)
                                                                    : avahi_client_errno(m_connection->client());
        withdraw();
        emit failed(avahiError);
    }
}
