// Class identifiers of the module's 33 classes.
#pragma once

#include "platform/guid.h"

inline constexpr CLSID CLSID_Alarm = MakeGuid("E1B48467-CC9F-4C91-A030-6CEAE1FD934D");
inline constexpr CLSID CLSID_AlarmCollection = MakeGuid("046D5A97-1154-40F1-8A91-5E7B5F1AF2B1");
inline constexpr CLSID CLSID_AlarmStates = MakeGuid("72C75BEF-10A9-41C4-881E-53C2001F5BC5");
inline constexpr CLSID CLSID_ChannelStats = MakeGuid("9E6F756E-4BE7-4E14-AD2A-72C81C8DDC6C");
inline constexpr CLSID CLSID_ConversationStats = MakeGuid("5C91C7DE-D4EB-4AC2-84F5-84829A8837BF");
inline constexpr CLSID CLSID_DashboardStats = MakeGuid("5F520656-9C9D-4897-964D-AE7E199604DE");
inline constexpr CLSID CLSID_EntityTable = MakeGuid("9817510F-BBE3-4B2B-B3C7-5B2B60CC6066");
inline constexpr CLSID CLSID_ErrorStats = MakeGuid("DEA0A0A2-05DF-41F2-8E87-F97303D7D849");
inline constexpr CLSID CLSID_HistoryStats = MakeGuid("8CAF98A1-69FB-42DA-9D9A-E858B9F6E973");
inline constexpr CLSID CLSID_NetworkStats = MakeGuid("81A6B979-D9E2-45ED-8EF7-928D61C53356");
inline constexpr CLSID CLSID_NodeStats = MakeGuid("7FABA337-7DB5-4029-B400-400D39DEE2EC");
inline constexpr CLSID CLSID_NodeStatsHierarchy = MakeGuid("1338335F-33D7-475C-B222-A7C8EDAE1FCE");
inline constexpr CLSID CLSID_NodeStatsTracker = MakeGuid("0EC1390E-3A7D-45B3-9803-84D74B5D5B80");
inline constexpr CLSID CLSID_ZemoStatsContextCollection = MakeGuid("96E479E3-364F-41EC-A25E-68968D20315D");
inline constexpr CLSID CLSID_ZemoStatsLimitSettings = MakeGuid("F7FD1F47-F210-4A95-A9A9-FC041414D3C2");
inline constexpr CLSID CLSID_ProtocolStats = MakeGuid("2D33B8EB-CCFB-4AF8-B04D-39AB35EFB677");
inline constexpr CLSID CLSID_ProtocolStatsByID = MakeGuid("135C247F-539C-49BB-9395-CAB32304944F");
inline constexpr CLSID CLSID_ProtocolStatsTracker = MakeGuid("CDC6DD80-C8AC-4968-8A1C-CC30932E2E84");
inline constexpr CLSID CLSID_RollingNodeStats = MakeGuid("1A61492D-A721-4038-AD4B-3FA7A991C9BC");
inline constexpr CLSID CLSID_SizeStats = MakeGuid("9BF9BAF3-85A2-497B-82B7-BA36D650B976");
inline constexpr CLSID CLSID_StatsContext = MakeGuid("A584414D-9320-4CEE-B42E-B5F5A1D2445B");
inline constexpr CLSID CLSID_StatsServer = MakeGuid("B8DF30C9-74A3-4377-8BB1-AF1B5FD8A981");
inline constexpr CLSID CLSID_SummaryStats = MakeGuid("54A9726D-EA8F-434A-911F-9750E3229DAF");
inline constexpr CLSID CLSID_SummaryStatsSnapshot = MakeGuid("09A1C9B3-E44C-495D-90BF-45F54003AF35");
inline constexpr CLSID CLSID_SummaryStatsTracker = MakeGuid("705C4632-EFC9-4395-A66A-71A7F5618CC6");
inline constexpr CLSID CLSID_SummaryStatsUpdater = MakeGuid("C0D3B240-9937-4FC1-98A6-1F3714373C5C");
inline constexpr CLSID CLSID_TupleTable = MakeGuid("849DC78B-49CB-4E70-8128-349DC951D76B");
inline constexpr CLSID CLSID_WirelessChannelStats = MakeGuid("7536F351-57A7-47CF-B123-46FD9B91E2C2");
inline constexpr CLSID CLSID_WirelessChannelStats2 = MakeGuid("24A07384-12FF-49B7-9AD2-420201680C16");
inline constexpr CLSID CLSID_WirelessChannelStatsTracker = MakeGuid("1B352D25-BE6C-408E-ACB8-0F080FA05B2A");
inline constexpr CLSID CLSID_WirelessNodeAssociationTable = MakeGuid("EF298A48-48CF-43AD-853F-F160D1DD8AAB");
inline constexpr CLSID CLSID_WirelessNodeStats = MakeGuid("9650A486-60DB-4A84-AFCC-5F66DA8CBCD0");
inline constexpr CLSID CLSID_WirelessNodeStats2 = MakeGuid("804D54CF-3035-4D0F-AD6E-9A8CCE78D68C");
