#include "kelva/actors/ActorInfoChannel.h"

#include <vector>

#include "kelva/access/GuardedTopic.h"
#include "kelva/actors/InternTopics.h"
#include "kelva/utils/Log.h"
#include "kelva_intern.h"

namespace kelva::actors {
namespace {

dds_qos_t* channelQos() {
    dds_qos_t* qos = intern::topicQos();
    // Unregistering a description also disposes it: a withdrawn actor is gone for every reader.
    dds_qset_writer_data_lifecycle(qos, true);
    return qos;
}

const char* text(const char* s) { return s ? s : ""; }

}  // namespace

ActorInfoChannel::ActorInfoChannel(dds_entity_t participant, std::string sessionId) : m_sessionId(std::move(sessionId)) {
    dds_qos_t* qos = channelQos();
    const dds_entity_t topic =
        access::createGuardedTopic(participant, &kelva_intern_ActorInfo_desc, intern::kActorInfoTopic, qos, nullptr);
    if (topic < 0) {
        utils::log::error() << "ActorInfoChannel: cannot create topic " << intern::kActorInfoTopic << ": " << dds_strretcode(topic);
        dds_delete_qos(qos);
        return;
    }
    m_publisher = dds_create_publisher(participant, nullptr, nullptr);
    m_writer = dds_create_writer(m_publisher, topic, qos, nullptr);
    if (m_writer < 0) {
        utils::log::error() << "ActorInfoChannel: cannot create writer: " << dds_strretcode(m_writer);
        m_writer = 0;
    }
    dds_listener_t* listener = dds_create_listener(this);
    dds_lset_data_available(listener, &onDataAvailable);
    m_reader = dds_create_reader(participant, topic, qos, listener);
    dds_delete_listener(listener);
    if (m_reader < 0) {
        utils::log::error() << "ActorInfoChannel: cannot create reader: " << dds_strretcode(m_reader);
        m_reader = 0;
    }
    dds_delete_qos(qos);
}

ActorInfoChannel::~ActorInfoChannel() {
    // Deleting the reader waits for a listener call in progress; no call comes after it.
    if (m_reader > 0) dds_delete(m_reader);
    if (m_publisher > 0) dds_delete(m_publisher);
}

void ActorInfoChannel::publish(const ActorInfo& info) {
    if (m_writer <= 0) return;
    std::vector<char*> read, write;
    for (const auto& m : info.methodsRead) read.push_back(const_cast<char*>(m.c_str()));
    for (const auto& m : info.methodsWrite) write.push_back(const_cast<char*>(m.c_str()));
    kelva_intern_ActorInfo sample{};
    sample.ActorId = const_cast<char*>(info.actorId.c_str());
    sample.SessionId = const_cast<char*>(info.sessionId.c_str());
    sample.Name = const_cast<char*>(info.name.c_str());
    sample.ModuleName = const_cast<char*>(info.moduleName.c_str());
    sample.MethodsRead._buffer = read.data();
    sample.MethodsRead._length = sample.MethodsRead._maximum = static_cast<uint32_t>(read.size());
    sample.MethodsWrite._buffer = write.data();
    sample.MethodsWrite._length = sample.MethodsWrite._maximum = static_cast<uint32_t>(write.size());
    sample.InterfaceVersion = const_cast<char*>(info.interfaceVersion.c_str());
    const dds_return_t rc = dds_write(m_writer, &sample);
    if (rc != DDS_RETCODE_OK) utils::log::error() << "SessionImpl::publishActorInfo: " << dds_strretcode(rc);
}

void ActorInfoChannel::withdraw(const std::string& actorId) {
    if (m_writer <= 0) return;
    kelva_intern_ActorInfo key{};
    key.ActorId = const_cast<char*>(actorId.c_str());
    key.SessionId = key.Name = key.ModuleName = key.InterfaceVersion = const_cast<char*>("");
    const dds_return_t rc = dds_unregister_instance(m_writer, &key);
    // An actor whose description was never written (created and released at once) has no instance.
    if (rc != DDS_RETCODE_OK && rc != DDS_RETCODE_PRECONDITION_NOT_MET && rc != DDS_RETCODE_BAD_PARAMETER)
        utils::log::error() << "ActorInfoChannel::withdraw(" << actorId << "): " << dds_strretcode(rc);
}

void ActorInfoChannel::noteLocalVersion(const std::string& moduleName, const std::string& version) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_localVersions[moduleName] = version;
    for (const auto& [actorId, peer] : m_peers)
        if (peer.moduleName == moduleName) checkLocked(peer.sessionId, actorId, peer.moduleName, peer.version);
}

// The listener may run before dds_create_reader returned (history delivered at creation): it uses the
// reader it is given, not m_reader.
void ActorInfoChannel::onDataAvailable(dds_entity_t reader, void* arg) { static_cast<ActorInfoChannel*>(arg)->takePeers(reader); }

void ActorInfoChannel::takePeers(dds_entity_t reader) {
    constexpr int kBatch = 16;
    void* samples[kBatch];
    dds_sample_info_t infos[kBatch];
    for (;;) {
        samples[0] = nullptr;
        const dds_return_t n = dds_take(reader, samples, infos, kBatch, kBatch);
        if (n <= 0) break;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            for (dds_return_t i = 0; i < n; ++i) {
                const auto& s = *static_cast<const kelva_intern_ActorInfo*>(samples[i]);
                const std::string actorId = text(s.ActorId);
                if (!infos[i].valid_data || infos[i].instance_state != DDS_IST_ALIVE) {
                    m_peers.erase(actorId);
                    continue;
                }
                if (text(s.SessionId) == m_sessionId) continue;
                Peer peer{text(s.SessionId), text(s.ModuleName), text(s.InterfaceVersion)};
                checkLocked(peer.sessionId, actorId, peer.moduleName, peer.version);
                m_peers[actorId] = std::move(peer);
            }
        }
        dds_return_loan(reader, samples, n);
    }
}

void ActorInfoChannel::checkLocked(const std::string& peerSession, const std::string& peerActor,
                                   const std::string& module, const std::string& version) {
    auto local = m_localVersions.find(module);
    if (local == m_localVersions.end() || version.empty() || version == local->second) return;
    if (!m_warned.insert({peerSession, module}).second) return;
    utils::log::warn() << "Interface version mismatch: " << module << " is " << local->second << " here, "
                       << version << " in peer session " << peerSession << " (actor " << peerActor << ")";
}

}  // namespace kelva::actors
