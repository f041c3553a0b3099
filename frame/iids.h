// Identifiers of the module's interfaces, each written once here. An
// interface's declaration takes its `iid` from this table.
#pragma once

#include "platform/guid.h"

inline constexpr IID IID_IAlarm = MakeGuid("F8E5C1C3-F2FB-426F-A85F-E3F23FC16CA3");  // marshalled: yes
inline constexpr IID IID_IAlarmCollection = MakeGuid("6674AFB0-76EB-4109-9C60-B5790E79841F");  // marshalled: yes
inline constexpr IID IID_IAlarmStates = MakeGuid("7A10C95A-9CA0-490F-88F2-44AE9B3BC2F4");  // marshalled: yes
inline constexpr IID IID_IChannelStats = MakeGuid("E0592785-82CD-4CAF-8931-792DC30E496E");  // marshalled: yes
inline constexpr IID IID_ICloneable = MakeGuid("28DEFF5E-A113-403D-B02F-1234DEDE8B8D");  // marshalled: no
inline constexpr IID IID_IConversationStats = MakeGuid("E51EE005-2871-4546-90EF-B5CA71D8BEF9");  // marshalled: yes
inline constexpr IID IID_IDashboardStats = MakeGuid("7D71D3DF-597C-412E-9B27-EB68AA87820B");  // marshalled: yes
inline constexpr IID IID_IEntityTable = MakeGuid("02184323-03C1-4C92-866D-CCDF44AFF752");  // marshalled: yes
inline constexpr IID IID_IErrorStats = MakeGuid("BB8224AB-D316-4EF7-88FB-A7C432834823");  // marshalled: yes
inline constexpr IID IID_IExpertTable = MakeGuid("28E57618-8030-49DA-8A82-6AE663879F5E");  // marshalled: yes
inline constexpr IID IID_IExpertTableCreator = MakeGuid("090D8838-3973-4BE9-9AB9-E37EA5B13F46");  // marshalled: yes
inline constexpr IID IID_IHistoryStats = MakeGuid("35D910BB-D613-4845-AFFA-232EC7970AFB");  // marshalled: yes
inline constexpr IID IID_INetworkStats = MakeGuid("90DDFF35-DC02-406D-B1B8-656EBF4C308C");  // marshalled: yes
inline constexpr IID IID_INodeStats = MakeGuid("4B03564E-978F-4FA2-B382-E35B3F436EFC");  // marshalled: yes
inline constexpr IID IID_INodeStatsHierarchy = MakeGuid("F24092F0-9E70-46C1-A36D-5A53743EBF9D");  // marshalled: yes
inline constexpr IID IID_INodeStatsTracker = MakeGuid("B76C08C6-0E7F-4FC8-9CB6-C89D11211618");  // marshalled: yes
inline constexpr IID IID_IPacketProcessorEvents = MakeGuid("AFB024B7-4C4F-4153-9995-D48B0488BC6E");  // marshalled: no
inline constexpr IID IID_IPersistXml = MakeGuid("83FE0429-CBE9-47A2-98E5-4B858464AF9C");  // marshalled: no
inline constexpr IID IID_IPersistXmlDeltas = MakeGuid("CC58331B-EE84-4100-A446-3A1E060C7F1D");  // marshalled: no
inline constexpr IID IID_IProcessPacket = MakeGuid("3CBF88C8-C385-40B5-8394-0A8480BB71C0");  // marshalled: no
inline constexpr IID IID_IProcessTime = MakeGuid("750138D1-C07A-4C06-83F9-B275BBEADCE8");  // marshalled: no
inline constexpr IID IID_IProtocolStats = MakeGuid("A4B887DE-66E8-4F1E-A897-FB758FC37963");  // marshalled: yes
inline constexpr IID IID_IProtocolStatsTracker = MakeGuid("7F5E5B64-2E8A-45C2-B68B-232845FED12A");  // marshalled: yes
inline constexpr IID IID_IResetProcessing = MakeGuid("0FA72D19-31B9-44F7-AA38-00410242A992");  // marshalled: no
inline constexpr IID IID_IResetStatistics = MakeGuid("2A045D28-6790-420A-9EA8-AD0A95913F97");  // marshalled: yes
inline constexpr IID IID_IRollingNodeStats = MakeGuid("75866A5C-23A0-43DF-A825-501F74CF4819");  // marshalled: yes
inline constexpr IID IID_ISaveStreamDeltas = MakeGuid("B29B4A65-CD92-4994-AC41-C786475EC644");  // marshalled: no
inline constexpr IID IID_ISelectableObject = MakeGuid("6B910E32-EAC1-4E77-BFA7-9E4D4A0C56EF");  // marshalled: no
inline constexpr IID IID_ISizeStats = MakeGuid("876BCD98-0C50-461A-B1CD-5D02039437BE");  // marshalled: yes
inline constexpr IID IID_IStatsUpdater = MakeGuid("35C177BA-15C3-448F-B349-E3851608080B");  // marshalled: yes
inline constexpr IID IID_ISummaryStats = MakeGuid("BE043620-056A-4529-807F-145CBFB2F50B");  // marshalled: yes
inline constexpr IID IID_ISummaryStatsItem = MakeGuid("02D2E8B9-AA0E-42E9-BAD8-B9D3A284C28B");  // marshalled: yes
inline constexpr IID IID_ISummaryStatsSnapshot = MakeGuid("A6783DCF-6C6A-49B3-9196-158FD9AEAD4B");  // marshalled: yes
inline constexpr IID IID_ISummaryStatsTracker = MakeGuid("191C72A3-290C-410A-A8FA-5A28DFB70311");  // marshalled: yes
inline constexpr IID IID_ITupleTable = MakeGuid("3C6209BE-566D-48D9-941E-96FE4A3079E6");  // marshalled: yes
inline constexpr IID IID_IUpdateSummaryStats = MakeGuid("E7895BB6-0AC3-4679-B553-2A379C2336A1");  // marshalled: no
inline constexpr IID IID_IWirelessChannelStats = MakeGuid("97B9706E-8C40-4D0C-9F05-63CB0F274CA2");  // marshalled: yes
inline constexpr IID IID_IWirelessChannelStats2 = MakeGuid("602CD241-0F66-4AC3-81F8-FC4A7478067D");  // marshalled: yes
inline constexpr IID IID_IWirelessChannelStatsTracker = MakeGuid("1EBB8EF6-9998-4881-B5BD-2CDEA34D2BEB");  // marshalled: yes
inline constexpr IID IID_IWirelessNodeAssociationTable = MakeGuid("4E510F8B-BE17-422B-B5BE-8BB834E73402");  // marshalled: yes
inline constexpr IID IID_IWirelessNodeStats = MakeGuid("48FB1569-2FE1-47A3-9E5E-D08ECB4736AC");  // marshalled: yes
inline constexpr IID IID_IWirelessNodeStats2 = MakeGuid("9CD33EEB-603A-4D1F-9249-8C4E31DED0F7");  // marshalled: yes
inline constexpr IID IID_IZemoStats = MakeGuid("C777A3B6-7B37-49DF-8C1D-96FB9DD7AA8E");  // marshalled: yes
inline constexpr IID IID_IZemoStatsContext = MakeGuid("11F27A5A-5503-4502-A4B7-A7C179BC5AE9");  // marshalled: yes
inline constexpr IID IID_IZemoStatsContextCollection = MakeGuid("5CC63745-00E4-4504-A3AF-B999768B1557");  // marshalled: yes
inline constexpr IID IID_IZemoStatsLimit = MakeGuid("B1BEE578-CE95-4C1F-98E0-6D3DF251C707");  // marshalled: yes
inline constexpr IID IID_IZemoStatsLimitSettings = MakeGuid("291E5E81-D453-4C62-8B6F-5AB8F2D0C182");  // marshalled: yes
inline constexpr IID IID_IZemoStatsServer = MakeGuid("01A26BEF-5D78-43A6-AFBE-CFBE21E4D2C5");  // marshalled: yes
inline constexpr IID IID_IZemoStatsTracker = MakeGuid("0AA72DD8-D74B-4845-A89E-5B1B4D64C6FC");  // marshalled: yes
inline constexpr IID IID_IZemoStatsTrackerFactory = MakeGuid("B9093FFD-2F50-47FD-B507-39E7597B1873");  // marshalled: yes
