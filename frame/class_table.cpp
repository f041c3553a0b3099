#include "frame/class_table.h"

#include "alarms/alarm.h"
#include "alarms/alarm_collection.h"
#include "alarms/alarm_states.h"
#include "alarms/node_stats_tracker.h"
#include "alarms/protocol_stats_tracker.h"
#include "alarms/stats_server.h"
#include "context/stats_context.h"
#include "context/stats_context_collection.h"
#include "frame/clsids.h"
#include "frame/iids.h"
#include "identity/entity_table.h"
#include "identity/tuple_table.h"
#include "network/dashboard_stats.h"
#include "network/error_stats.h"
#include "network/history_stats.h"
#include "network/size_stats.h"
#include "network/channel_stats.h"
#include "network/network_stats.h"
#include "platform/interfaces.h"
#include "summary/summary_stats.h"
#include "summary/summary_stats_snapshot.h"
#include "summary/summary_stats_tracker.h"
#include "summary/summary_stats_updater.h"
#include "tables/conversation_stats.h"
#include "tables/limit_settings.h"
#include "tables/node_stats.h"
#include "tables/node_stats_hierarchy.h"
#include "tables/protocol_stats.h"
#include "tables/rolling_node_stats.h"
#include "wireless/wireless_channel_stats.h"
#include "wireless/wireless_channel_stats2.h"
#include "wireless/wireless_channel_stats_tracker.h"
#include "wireless/wireless_association.h"
#include "wireless/wireless_node_stats.h"
#include "wireless/wireless_node_stats2.h"

namespace zemo {
namespace {

// The module's classes in table order: name, identifier, whether it may be
// aggregated, its creator (null until the class is built: the module does not
// serve it), and the interfaces its objects offer, in their order.
const ClassInfo kClasses[] = {
    {u"Alarm", CLSID_Alarm, false, &CreateClass<Alarm>, {&IID_IAlarm, &IID_ICloneable, &IID_IPersistXml}},
    {u"AlarmCollection", CLSID_AlarmCollection, false, &CreateClass<AlarmCollection>, {&IID_IAlarmCollection, &IPersistStream::iid, &IID_IPersistXml, &IPersistFile::iid, &IID_ISelectableObject}},
    {u"AlarmStates", CLSID_AlarmStates, false, &CreateClass<AlarmStates>, {&IID_IAlarmStates, &IPersistStream::iid, &IID_IPersistXml}},
    {u"ChannelStats", CLSID_ChannelStats, false, &CreateClass<ChannelStats>, {&IID_IChannelStats, &IID_IZemoStats, &IID_IProcessPacket, &IID_IProcessTime, &IID_IResetProcessing, &IPersistStream::iid, &IID_IPersistXml}},
    {u"ConversationStats", CLSID_ConversationStats, false, &CreateClass<ConversationStats>, {&IID_IConversationStats, &IID_IZemoStats, &IID_IProcessPacket, &IID_IResetProcessing, &IPersistStream::iid, &IID_ISaveStreamDeltas, &IID_IPersistXml, &IID_IPersistXmlDeltas, &IPersistFile::iid, &IID_IZemoStatsLimit, &IID_ISelectableObject}},
    {u"DashboardStats", CLSID_DashboardStats, false, &CreateClass<DashboardStats>, {&IID_IDashboardStats, &IID_IZemoStats, &IID_IProcessPacket, &IID_IProcessTime, &IID_IResetProcessing, &IPersistStream::iid}},
    {u"EntityTable", CLSID_EntityTable, false, &CreateClass<EntityTable>, {&IID_IEntityTable, &IPersistStream::iid, &IID_ISaveStreamDeltas, &IID_IPersistXml, &IID_IPersistXmlDeltas, &IPersistFile::iid, &IID_ISelectableObject}},
    {u"ErrorStats", CLSID_ErrorStats, false, &CreateClass<ErrorStats>, {&IID_IErrorStats, &IID_IZemoStats, &IID_IProcessPacket, &IID_IProcessTime, &IID_IResetProcessing, &IPersistStream::iid, &IID_IPersistXml, &IPersistFile::iid, &IID_ISelectableObject}},
    {u"HistoryStats", CLSID_HistoryStats, false, &CreateClass<HistoryStats>, {&IID_IHistoryStats, &IID_IZemoStats, &IID_IProcessPacket, &IID_IProcessTime, &IID_IResetProcessing, &IPersistStream::iid, &IID_IPersistXml, &IPersistFile::iid}},
    {u"NetworkStats", CLSID_NetworkStats, false, &CreateClass<NetworkStats>, {&IID_INetworkStats, &IID_IChannelStats, &IID_IZemoStats, &IID_IProcessPacket, &IID_IProcessTime, &IID_IResetProcessing, &IPersistStream::iid, &IID_IPersistXml, &IPersistFile::iid, &IID_ISelectableObject}},
    {u"NodeStats", CLSID_NodeStats, false, &CreateClass<NodeStats>, {&IID_INodeStats, &IID_IZemoStats, &IID_IProcessPacket, &IID_IResetProcessing, &IPersistStream::iid, &IID_ISaveStreamDeltas, &IID_IPersistXml, &IID_IPersistXmlDeltas, &IPersistFile::iid, &IID_IZemoStatsLimit, &IID_IZemoStatsTrackerFactory, &IID_ISelectableObject}},
    {u"NodeStatsHierarchy", CLSID_NodeStatsHierarchy, false, &CreateClass<NodeStatsHierarchy>, {&IID_INodeStatsHierarchy, &IID_IZemoStats, &IID_IProcessPacket, &IID_IResetProcessing, &IPersistStream::iid, &IID_ISaveStreamDeltas, &IID_IPersistXml, &IID_IPersistXmlDeltas, &IPersistFile::iid, &IID_IZemoStatsLimit, &IID_ISelectableObject}},
    {u"NodeStatsTracker", CLSID_NodeStatsTracker, false, &CreateClass<NodeStatsTracker>, {&IID_IZemoStatsTracker, &IID_INodeStatsTracker, &IID_ICloneable, &IID_IPersistXml}},
    {u"ZemoStatsContextCollection", CLSID_ZemoStatsContextCollection, true, &CreateClass<ZemoStatsContextCollection>, {&IID_IZemoStatsContextCollection, &IID_IPersistXml}},
    {u"ZemoStatsLimitSettings", CLSID_ZemoStatsLimitSettings, false, &CreateClass<ZemoStatsLimitSettings>, {&IID_IZemoStatsLimitSettings, &IID_IPersistXml}},
    {u"ProtocolStats", CLSID_ProtocolStats, false, &CreateClass<ProtocolStats>, {&IID_IProtocolStats, &IID_IZemoStats, &IID_IProcessPacket, &IID_IResetProcessing, &IPersistStream::iid, &IID_ISaveStreamDeltas, &IID_IPersistXml, &IID_IPersistXmlDeltas, &IPersistFile::iid, &IID_IZemoStatsLimit, &IID_ISelectableObject}},
    {u"ProtocolStatsByID", CLSID_ProtocolStatsByID, false, &CreateClass<ProtocolStatsByID>, {&IID_IProtocolStats, &IID_IZemoStats, &IID_IProcessPacket, &IID_IResetProcessing, &IPersistStream::iid, &IID_ISaveStreamDeltas, &IID_IPersistXml, &IID_IPersistXmlDeltas, &IPersistFile::iid, &IID_IZemoStatsLimit, &IID_IZemoStatsTrackerFactory, &IID_ISelectableObject}},
    {u"ProtocolStatsTracker", CLSID_ProtocolStatsTracker, false, &CreateClass<ProtocolStatsTracker>, {&IID_IZemoStatsTracker, &IID_IProtocolStatsTracker, &IID_ICloneable, &IID_IPersistXml}},
    {u"RollingNodeStats", CLSID_RollingNodeStats, false, &CreateClass<RollingNodeStats>, {&IID_IRollingNodeStats, &IID_INodeStats, &IID_IZemoStats, &IID_IProcessPacket, &IID_IProcessTime, &IID_IPacketProcessorEvents, &IID_IResetProcessing, &IPersistStream::iid, &IID_ISaveStreamDeltas, &IID_IPersistXml, &IID_IPersistXmlDeltas, &IPersistFile::iid, &IID_ISelectableObject}},
    {u"SizeStats", CLSID_SizeStats, false, &CreateClass<SizeStats>, {&IID_ISizeStats, &IID_IZemoStats, &IID_IProcessPacket, &IID_IResetProcessing, &IPersistStream::iid, &IID_IPersistXml, &IPersistFile::iid, &IID_ISelectableObject}},
    {u"StatsContext", CLSID_StatsContext, false, &CreateClass<StatsContext>, {&IID_IZemoStatsContext, &IID_IProcessPacket, &IID_IProcessTime, &IID_IPacketProcessorEvents, &IID_IResetProcessing, &IID_IResetStatistics, &IPersistStream::iid, &IID_ISaveStreamDeltas, &IID_IPersistXml, &IID_IPersistXmlDeltas, &IPersistFile::iid, &IObjectWithSite::iid, &IID_ISelectableObject, &IID_IUpdateSummaryStats}},
    {u"StatsServer", CLSID_StatsServer, false, &CreateClass<StatsServer>, {&IID_IZemoStatsServer, &IID_IResetProcessing, &IID_IProcessTime, &IID_ISelectableObject}},
    {u"SummaryStats", CLSID_SummaryStats, false, &CreateClass<SummaryStats>, {&IID_ISummaryStats, &IID_IZemoStats, &IPersistStream::iid, &IID_IPersistXml, &IPersistFile::iid, &IID_IZemoStatsTrackerFactory, &IID_ISelectableObject}},
    {u"SummaryStatsSnapshot", CLSID_SummaryStatsSnapshot, false, &CreateClass<SummaryStatsSnapshot>, {&IID_ISummaryStatsSnapshot, &IID_ICloneable, &IPersistStream::iid, &IID_IPersistXml}},
    {u"SummaryStatsTracker", CLSID_SummaryStatsTracker, false, &CreateClass<SummaryStatsTracker>, {&IID_IZemoStatsTracker, &IID_ISummaryStatsTracker, &IID_ICloneable, &IID_IPersistXml}},
    {u"SummaryStatsUpdater", CLSID_SummaryStatsUpdater, false, &CreateClass<SummaryStatsUpdater>, {&IID_IStatsUpdater}},
    {u"TupleTable", CLSID_TupleTable, false, &CreateClass<TupleTable>, {&IID_ITupleTable, &IPersistStream::iid, &IID_ISaveStreamDeltas, &IID_IPersistXml, &IID_IPersistXmlDeltas, &IID_ISelectableObject}},
    {u"WirelessChannelStats", CLSID_WirelessChannelStats, false, &CreateClass<WirelessChannelStats>, {&IID_IWirelessChannelStats, &IID_IZemoStats, &IID_IProcessPacket, &IID_IResetProcessing, &IPersistStream::iid, &IID_ISaveStreamDeltas, &IID_IPersistXml, &IID_IPersistXmlDeltas, &IPersistFile::iid, &IID_IZemoStatsTrackerFactory}},
    {u"WirelessChannelStats2", CLSID_WirelessChannelStats2, false, &CreateClass<WirelessChannelStats2>, {&IID_IWirelessChannelStats2, &IID_IWirelessChannelStats, &IID_IZemoStats, &IID_IProcessPacket, &IID_IResetProcessing, &IPersistStream::iid, &IID_ISaveStreamDeltas}},
    {u"WirelessChannelStatsTracker", CLSID_WirelessChannelStatsTracker, false, &CreateClass<WirelessChannelStatsTracker>, {&IID_IZemoStatsTracker, &IID_IWirelessChannelStatsTracker, &IID_ICloneable, &IID_IPersistXml}},
    {u"WirelessNodeAssociationTable", CLSID_WirelessNodeAssociationTable, false, &CreateClass<WirelessNodeAssociationTable>, {&IID_IWirelessNodeAssociationTable, &IPersistStream::iid, &IID_IPersistXml, &IPersistFile::iid}},
    {u"WirelessNodeStats", CLSID_WirelessNodeStats, false, &CreateClass<WirelessNodeStats>, {&IID_IWirelessNodeStats, &IID_IZemoStats, &IID_IProcessPacket, &IID_IResetProcessing, &IPersistStream::iid, &IID_ISaveStreamDeltas, &IID_IPersistXml, &IID_IPersistXmlDeltas, &IPersistFile::iid}},
    {u"WirelessNodeStats2", CLSID_WirelessNodeStats2, false, &CreateClass<WirelessNodeStats2>, {&IID_IWirelessNodeStats2, &IID_IWirelessNodeStats, &IID_IZemoStats, &IID_IProcessPacket, &IID_IResetProcessing, &IPersistStream::iid, &IID_ISaveStreamDeltas}},
};

}  // namespace

std::span<const ClassInfo> ClassTable() { return kClasses; }

const ClassInfo* FindClass(REFCLSID clsid) {
  for (const ClassInfo& c : ClassTable())
    if (c.clsid == clsid) return &c;
  return nullptr;
}

}  // namespace zemo
