// The fixed ids of the summary items that SummaryStatsUpdater writes. An item
// keeps its id from tick to tick, across media and across saved files, and
// the ids are the keys of the stat map, where their names are.
#pragma once

#include <array>
#include <span>

#include "platform/guid.h"

namespace zemo::summary_items {

// General: the capture's start, and what the host's site knows of it.
inline constexpr GUID kGeneralGroup = MakeGuid("A8B16D75-4399-454F-802C-962B7DEC8C1E");
inline constexpr GUID kStartDate = MakeGuid("7A2E6F9E-D333-417C-85CA-03792925373E");
inline constexpr GUID kStartTime = MakeGuid("9169FD10-67DE-4965-B09F-1DF7494AE571");
inline constexpr GUID kSiteDuration = MakeGuid("3C5CB151-585B-42AE-B894-0C2CC5324EF1");
inline constexpr GUID kTriggerCount = MakeGuid("3E41BB92-55AD-40BC-910B-5D3C6A6412D8");
inline constexpr GUID kTriggerDuration = MakeGuid("9ED4C339-0F51-4FB8-915A-61ACAC60596B");
inline constexpr GUID kPacketsDropped = MakeGuid("3D746368-C270-4BF5-8170-AD1E01E7B5EF");

// Network-wide totals and rates.
inline constexpr GUID kNetworkGroup = MakeGuid("297321C1-3D83-4A00-9A9D-E0532AD40D10");
inline constexpr GUID kTotalBytes = MakeGuid("A5B91517-D240-48D8-8CBE-EE62102657B2");
inline constexpr GUID kTotalPackets = MakeGuid("EBF851A9-6629-411F-A041-47427E9AAB4B");
inline constexpr GUID kBroadcast = MakeGuid("C6E998E4-0EB2-483A-9879-C6D6F0382D59");
inline constexpr GUID kMulticast = MakeGuid("1E300555-86AC-4035-AFED-2EBB72E6D0DA");
inline constexpr GUID kAverageUtilization = MakeGuid("D11E695E-72C6-432F-9ABA-B5522C3EBC87");
inline constexpr GUID kAverageBitsPerSecond = MakeGuid("46E96D49-564B-455A-9698-39A2C203044E");
inline constexpr GUID kCurrentUtilization = MakeGuid("865F6989-A8A5-46C7-8DAB-55A61D8A0531");
inline constexpr GUID kCurrentBitsPerSecond = MakeGuid("2B4E825C-D467-4B1A-851D-A9D01B4C0889");

// Per channel: channel i's ids are these with i added to the first word.
inline constexpr GUID kChannelGroup = MakeGuid("51E79A69-F37B-4F8D-AE78-59735A685849");
inline constexpr GUID kChannelBytes = MakeGuid("DFEB5246-D139-4807-B88D-2339E1A60B74");
inline constexpr GUID kChannelPackets = MakeGuid("5600C62C-A0E7-458C-9EF5-E8D520E136BE");
inline constexpr GUID kChannelBroadcast = MakeGuid("A2321B0A-6073-4ACE-8DA1-EE3F943AAE2D");
inline constexpr GUID kChannelMulticast = MakeGuid("AE33C5B6-B319-474F-999B-8B43D0A050BA");
inline constexpr GUID kChannelAverageUtilization = MakeGuid("6E006316-53DC-4667-B012-09F525FBA972");
inline constexpr GUID kChannelAverageBitsPerSecond = MakeGuid("44382153-E04F-4D8C-ABD6-282427EA0D41");
inline constexpr GUID kChannelCurrentUtilization = MakeGuid("4535219C-DE0E-4605-B7FF-7ADA52C63CA5");
inline constexpr GUID kChannelCurrentBitsPerSecond = MakeGuid("F60ACD59-30B3-4C32-B0BA-FB0561966829");

// The id of channel i's item from a base id.
constexpr GUID ChannelItem(const GUID& base, uint32_t channel) noexcept {
  GUID id = base;
  id.Data1 += channel;
  return id;
}

// A group of items chosen by the medium: errors by counter, sizes by bucket.
struct MediumItems {
  GUID group;
  std::span<const GUID> items;
};

inline constexpr GUID kErrorItems00[] = {
    MakeGuid("03D38594-B41B-4B65-89FC-5551622119E2"), MakeGuid("F5A6ACEA-3056-46A9-A371-E84C341676F6"),
    MakeGuid("84F24DF0-1DC1-4D36-9AE0-089C49898E62"), MakeGuid("44499DF0-A590-4A68-B7E3-261BCC32A4A9"),
    MakeGuid("4FE0F623-4BC2-4026-A41B-CBBA34A2E6BF")};
inline constexpr GUID kErrorItems0x[] = {MakeGuid("F98717B3-372D-4117-8265-31DFDB13F42E"),
                                         MakeGuid("DE7B6D88-68E9-40E3-AA91-79A0F5FF503D")};
inline constexpr GUID kErrorItems1[] = {
    MakeGuid("73A5C5D4-2936-49B7-B482-846870674BEB"), MakeGuid("78F2BE0A-6263-4CBC-AA46-1D2AFF936311"),
    MakeGuid("DBFC2B73-6341-4887-BB16-71C0218ECEFA"), MakeGuid("394FD0EB-9DF5-4B3F-8C7A-FD14C5EDADA8"),
    MakeGuid("8F816B72-14CC-406D-87C4-4F8B6308D6FC"), MakeGuid("4AFB34FB-8375-4BB6-A42B-70D4BB32DA19"),
    MakeGuid("04F79F74-54A6-49B0-A736-39EA8A3F1FB3"), MakeGuid("72B4C312-21A0-4D58-8454-7EF6E7E20310"),
    MakeGuid("7FB7E938-4FEC-4CAB-B064-06FA59A34944"), MakeGuid("844C2D99-15A2-4705-A2F8-5858A5E021EF"),
    MakeGuid("234700CC-2800-4EEE-BA3D-80ECA42C9E09")};
inline constexpr GUID kErrorItems3[] = {MakeGuid("031F1C84-B442-48B0-AA4D-365EB916EFEB"),
                                        MakeGuid("A4680679-B302-4EF8-938D-C8E091ED2AA8"),
                                        MakeGuid("5C9C6812-5FE9-48AC-A0CE-26C13466F724")};

inline constexpr MediumItems kErrors00{MakeGuid("32E55B2E-EF3F-4E8F-A7F2-FE5A9AE97F61"), kErrorItems00};
inline constexpr MediumItems kErrors0x{MakeGuid("7C0DD85C-B882-4C04-80B5-CFDE98CC40A6"), kErrorItems0x};
inline constexpr MediumItems kErrors1{MakeGuid("A5ACD9BE-0BBD-48FD-8A12-395BC7603547"), kErrorItems1};
inline constexpr MediumItems kErrors3{MakeGuid("F1D2EBBE-FA2C-45F9-8DEC-B779848E74E1"), kErrorItems3};

// Counts of addresses and protocols, all integers.
inline constexpr GUID kCountsGroup = MakeGuid("4901DA36-39A3-4378-BA25-9B2C8DBE3B70");
inline constexpr GUID kPhysicalAddresses = MakeGuid("DA59F050-BDCB-4941-B127-58CAC9953A0E");  // types 10, 13, 43
inline constexpr GUID kIpAddresses = MakeGuid("31395201-99EA-4692-94C9-768F3395548B");        // type 21
inline constexpr GUID kIpv6Addresses = MakeGuid("745A1D47-B183-483C-A745-9EE68D5DD904");      // type 24
inline constexpr GUID kType20Addresses = MakeGuid("9A4A258E-55A7-47C4-A22A-D335459E542D");
inline constexpr GUID kType22Addresses = MakeGuid("EA334D25-C7EE-4188-9A7B-41CBF5EC3009");
inline constexpr GUID kType25Addresses = MakeGuid("BCF5F410-BE5A-4FDC-9DD8-D000C44B4AE4");
inline constexpr GUID kProtocols = MakeGuid("C19D1F21-75BE-40AA-AB2E-140E04A8A9C2");

// Sizes, by the size set of the medium (SizeStats chooses it the same way).
inline constexpr GUID kSizeItems1[] = {
    MakeGuid("1A3944B2-4868-462D-9EF3-00D9DA478191"), MakeGuid("C9084307-72B4-45F3-BF3B-FCF69BEDDD17"),
    MakeGuid("13E301E0-244F-44F8-BAD1-C817250B1153"), MakeGuid("45246D68-E43F-4427-BBEA-C9597C7EF484"),
    MakeGuid("7D5C611D-F7E6-4AEE-A48D-FEC61A35760A"), MakeGuid("7A9E6245-DCC6-49E3-9F8E-9A40A4089531"),
    MakeGuid("E42EA327-3917-467E-A1DF-0D32465D0A6C")};
inline constexpr GUID kSizeItems4[] = {
    MakeGuid("1A70AA4F-2422-424E-97C1-879161761143"), MakeGuid("C3CB93BE-300F-48E4-B4D5-A90CEC42ACAB"),
    MakeGuid("4F8CFCF8-A0B2-4449-9D70-7504B7F5498C"), MakeGuid("04A49B86-125E-4EA9-BD4B-30DA4F1A97D6"),
    MakeGuid("296E0796-BB5D-4597-81D4-82FF97EEAE87"), MakeGuid("CAC1B062-51EC-46F3-A511-4729948F96EE"),
    MakeGuid("82B49D04-7E94-4952-BBF8-9BE20C1A2307"), MakeGuid("73E3680C-FAC4-4B51-8C55-1B79851DACD5"),
    MakeGuid("B143142A-7E01-4E21-9F64-BD69FA84E9BC"), MakeGuid("EFA2E09B-74F6-4996-9589-6B916EC33F56"),
    MakeGuid("2D92D89E-A8B1-40D3-BE54-FC9753DF7782"), MakeGuid("C0419AF0-B285-415D-8C68-802BBC2B6088")};
inline constexpr GUID kSizeItems3[] = {
    MakeGuid("829BDED5-A65E-40E2-AD01-36B3D681FF20"), MakeGuid("DD33C89D-9694-411A-A046-B3F99E9110F1"),
    MakeGuid("831F35B4-3226-4488-B477-20F370F7D5E7"), MakeGuid("980EF105-FC4D-4288-872D-EAB3152C5C05"),
    MakeGuid("CA5B3D71-2A4F-4BFE-9C09-E6F3C39698EC"), MakeGuid("04448A39-2DB6-487F-BA74-B6E3AE2459D3"),
    MakeGuid("5F986D54-B328-4A7A-9B49-F1597F480A3C"), MakeGuid("5B396320-D326-488D-8131-E3EA962986ED")};
inline constexpr GUID kSizeItems2[] = {
    MakeGuid("F3B757D9-9BFD-4392-8437-661105748983"), MakeGuid("384478EC-7D7B-4350-B4CE-68C2148FD396"),
    MakeGuid("7D140A15-6D12-4D38-A75F-1FB81BCC7FED"), MakeGuid("4DA525B2-46AB-4453-BFDD-2CE7A588EEFA"),
    MakeGuid("DAEE5BC0-B7C3-4E58-9F4B-75C73F8A774D"), MakeGuid("A40E2FEC-05FF-47B4-B3E5-70F4970FDE03"),
    MakeGuid("8F8DC57F-D4F0-4FB7-80E1-FE9579B6C22B"), MakeGuid("5D5D22CD-9765-42BB-9647-B0B31D991625"),
    MakeGuid("57402FA7-E659-4212-AB49-A935B961CBC2"), MakeGuid("4017168C-7603-440E-A1B4-F16FB92482F2")};
inline constexpr GUID kSizeItems5[] = {
    MakeGuid("B6CE8A8F-6A66-4F6D-909D-7B2DD4C0EF18"), MakeGuid("711E3E91-DFE5-403B-B336-6129DE7B9857"),
    MakeGuid("19700D73-8500-470B-B4A5-8D3650858B64"), MakeGuid("97C92977-728D-468A-8FB2-E05CE79D4D47"),
    MakeGuid("2EB7F7CA-90CD-4B20-9B14-E8BFFD24FBAE"), MakeGuid("C7F90B75-D477-40E7-B16D-2F0DAB8141F4"),
    MakeGuid("2431CB89-BD7C-443F-B83A-887E163468D1")};

inline constexpr MediumItems kSizes1{MakeGuid("7DE5A6CA-8AEA-47FF-A964-C4E1DA4BBD29"), kSizeItems1};
inline constexpr MediumItems kSizes4{MakeGuid("16970E5C-8FA2-41C8-9762-9ED77011067E"), kSizeItems4};
// Sets 3 and 2 share their group.
inline constexpr MediumItems kSizes3{MakeGuid("7AFD7E19-9C4C-4408-8036-CD1BEF18E9EB"), kSizeItems3};
inline constexpr MediumItems kSizes2{MakeGuid("7AFD7E19-9C4C-4408-8036-CD1BEF18E9EB"), kSizeItems2};
inline constexpr MediumItems kSizes5{MakeGuid("B5C891CF-16A1-4E35-8CC6-A57D58E84873"), kSizeItems5};

// Wireless node totals, one item for each of the 14 fields in record order.
inline constexpr GUID kWirelessItems[] = {
    MakeGuid("E0530AE4-D455-46D4-BA24-D228AC5CEA03"), MakeGuid("66221628-2AEC-46AD-A969-8B56426A5C31"),
    MakeGuid("D11639BD-36A7-4754-BA48-718539ABF834"), MakeGuid("D5E28953-7B3C-4D98-84D7-CC64AD7A356A"),
    MakeGuid("6A05A530-63D7-4BD4-A9B5-9C1A2B19FA81"), MakeGuid("CDB54412-FFCB-4F17-A22A-374B116C51DA"),
    MakeGuid("8457522F-0BB8-45E2-BC9D-61551CE363BA"), MakeGuid("D9DA5BF4-0571-4778-BA27-A905327D86E3"),
    MakeGuid("4C741DAB-7AFB-43C3-B650-8BF30F02C47D"), MakeGuid("A9EA6ECE-A7E0-4B0A-B015-DB91C7F451D3"),
    MakeGuid("90692918-5AF1-482A-97F1-777E55D1B520"), MakeGuid("081F8494-EF97-4FD1-A567-E611B2C36D61"),
    MakeGuid("2E3F68C4-4BC1-49A5-BC1F-36D0FAEF218D"), MakeGuid("00A5AF54-3552-44F0-AB99-D114CEF939AD")};
inline constexpr MediumItems kWireless{MakeGuid("1166D3AA-5DA5-44B1-9FD7-471F7C47457C"), kWirelessItems};

}  // namespace zemo::summary_items
