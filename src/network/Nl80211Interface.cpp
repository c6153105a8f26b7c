#include "network/Nl80211Interface.h"

#include "network/Nl80211Parser.h"

#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>

#include <linux/nl80211.h>

#include <functional>

#include <net/if.h>
#include <sys/socket.h>
#include <sys/time.h>

namespace {

// One generic-netlink conversation with nl80211; closes itself.
class Nl80211Socket
{
public:
    Nl80211Socket()
    {
        m_socket = nl_socket_alloc();
        if (!m_socket)
            return;
        if (genl_connect(m_socket) != 0) {
            close();
            return;
        }
        // A driver that never answers must not hold up a result.
        timeval timeout{1, 0};
        ::setsockopt(nl_socket_get_fd(m_socket), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        m_family = genl_ctrl_resolve(m_socket, "nl80211");
        if (m_family < 0)
            close();
    }
    ~Nl80211Socket() { close(); }
    Nl80211Socket(const Nl80211Socket &) = delete;
    Nl80211Socket &operator=(const Nl80211Socket &) = delete;

    bool valid() const { return m_socket != nullptr; }

    // Sends one request for the interface and hands every answer to visit;
    // false when the kernel refused it (not wireless, no such station).
    bool request(int command, bool dump, int interfaceIndex, const QByteArray &mac,
                 const std::function<void(nlmsghdr *)> &visit)
    {
        nl_msg *message = nlmsg_alloc();
        if (!message)
            return false;
        genlmsg_put(message, NL_AUTO_PORT, NL_AUTO_SEQ, m_family, 0, dump ? NLM_F_DUMP : 0, quint8(command), 0);
        nla_put_u32(message, NL80211_ATTR_IFINDEX, quint32(interfaceIndex));
        if (!mac.isEmpty())
            nla_put(message, NL80211_ATTR_MAC, int(mac.size()), mac.constData());

        struct Context
        {
            const std::function<void(nlmsghdr *)> *visit;
            int status = 1; // 1 waiting, 0 done, negative error
        } context{&visit};
        nl_cb *callbacks = nl_cb_alloc(NL_CB_DEFAULT);
        nl_cb_set(
            callbacks, NL_CB_VALID, NL_CB_CUSTOM,
            [](nl_msg *msg, void *arg) {
                (*static_cast<Context *>(arg)->visit)(nlmsg_hdr(msg));
                return int(NL_OK);
            },
            &context);
        nl_cb_set(
            callbacks, NL_CB_FINISH, NL_CB_CUSTOM,
            [](nl_msg *, void *arg) {
                static_cast<Context *>(arg)->status = 0;
                return int(NL_STOP);
            },
            &context);
        nl_cb_set(
            callbacks, NL_CB_ACK, NL_CB_CUSTOM,
            [](nl_msg *, void *arg) {
                static_cast<Context *>(arg)->status = 0;
                return int(NL_STOP);
            },
            &context);
        nl_cb_err(
            callbacks, NL_CB_CUSTOM,
            [](sockaddr_nl *, nlmsgerr *error, void *arg) {
                static_cast<Context *>(arg)->status = error->error < 0 ? error->error : -1;
                return int(NL_STOP);
            },
            &context);

        bool ok = nl_send_auto(m_socket, message) >= 0;
        while (ok && context.status > 0) {
            if (nl_recvmsgs(m_socket, callbacks) < 0)
                ok = false;
        }
        nl_cb_put(callbacks);
        nlmsg_free(message);
        return ok && context.status == 0;
    }

private:
    void close()
    {
        if (m_socket)
            nl_socket_free(m_socket);
        m_socket = nullptr;
    }

    nl_sock *m_socket = nullptr;
    int m_family = -1;
};

} // namespace

std::shared_ptr<WiFiInterface> Nl80211Interface::interfaceWithName(const QString &name)
{
    return std::make_shared<Nl80211Interface>(name);
}

Nl80211Interface::Nl80211Interface(QString name)
    : m_name(std::move(name))
{
}

QString Nl80211Interface::interfaceName() const
{
    return m_name;
}

WiFiLinkState Nl80211Interface::linkState()
{
    const int index = int(::if_nametoindex(m_name.toUtf8().constData()));
    if (index == 0)
        return {};
    Nl80211Socket socket;
    if (!socket.valid())
        return {};

    std::optional<Nl80211InterfaceFacts> interface;
    socket.request(NL80211_CMD_GET_INTERFACE, false, index, {}, [&](nlmsghdr *message) {
        if (!interface)
            interface = Nl80211Parser::parseInterface(message);
    });
    if (!interface)
        return {};

    std::optional<Nl80211BssFacts> bss;
    socket.request(NL80211_CMD_GET_SCAN, true, index, {}, [&](nlmsghdr *message) {
        std::optional<Nl80211BssFacts> entry = Nl80211Parser::parseScanResult(message);
        if (entry && entry->associated && !bss)
            bss = std::move(entry);
    });

    std::optional<Nl80211StationFacts> station;
    if (bss) {
        socket.request(NL80211_CMD_GET_STATION, false, index, bss->bssid, [&](nlmsghdr *message) {
            if (!station)
                station = Nl80211Parser::parseStation(message);
        });
    }

    std::optional<Nl80211SurveyFacts> survey;
    socket.request(NL80211_CMD_GET_SURVEY, true, index, {}, [&](nlmsghdr *message) {
        std::optional<Nl80211SurveyFacts> entry = Nl80211Parser::parseSurvey(message);
        if (entry && entry->inUse && !survey)
            survey = entry;
    });

    return Nl80211Parser::linkState(*interface, bss, station, survey);
}
