// The commands that the controller knows by name.
#pragma once

#include <cstdint>

namespace bthal::sim {

// Link control
inline constexpr uint16_t kInquiry = 0x0401;
inline constexpr uint16_t kInquiryCancel = 0x0402;
inline constexpr uint16_t kCreateConnection = 0x0405;
inline constexpr uint16_t kDisconnect = 0x0406;
inline constexpr uint16_t kCreateConnectionCancel = 0x0408;
inline constexpr uint16_t kAcceptConnection = 0x0409;
inline constexpr uint16_t kRejectConnection = 0x040A;
inline constexpr uint16_t kLinkKeyReply = 0x040B;
inline constexpr uint16_t kLinkKeyNegativeReply = 0x040C;
inline constexpr uint16_t kPinCodeReply = 0x040D;
inline constexpr uint16_t kPinCodeNegativeReply = 0x040E;
inline constexpr uint16_t kChangePacketType = 0x040F;
inline constexpr uint16_t kAuthenticationRequested = 0x0411;
inline constexpr uint16_t kSetConnectionEncryption = 0x0413;
inline constexpr uint16_t kRemoteNameRequest = 0x0419;
inline constexpr uint16_t kRemoteNameRequestCancel = 0x041A;
inline constexpr uint16_t kReadRemoteFeatures = 0x041B;
inline constexpr uint16_t kReadRemoteExtendedFeatures = 0x041C;
inline constexpr uint16_t kReadRemoteVersion = 0x041D;
inline constexpr uint16_t kReadClockOffset = 0x041F;
inline constexpr uint16_t kSetupSynchronousConnection = 0x0428;
inline constexpr uint16_t kAcceptSynchronousConnection = 0x0429;
inline constexpr uint16_t kRejectSynchronousConnection = 0x042A;
inline constexpr uint16_t kIoCapabilityReply = 0x042B;
inline constexpr uint16_t kUserConfirmationReply = 0x042C;
inline constexpr uint16_t kUserConfirmationNegativeReply = 0x042D;
inline constexpr uint16_t kUserPasskeyReply = 0x042E;
inline constexpr uint16_t kUserPasskeyNegativeReply = 0x042F;
inline constexpr uint16_t kRemoteOobReply = 0x0430;
inline constexpr uint16_t kRemoteOobNegativeReply = 0x0433;
inline constexpr uint16_t kIoCapabilityNegativeReply = 0x0434;

// Link policy
inline constexpr uint16_t kSniffMode = 0x0803;
inline constexpr uint16_t kExitSniffMode = 0x0804;
inline constexpr uint16_t kRoleDiscovery = 0x0809;
inline constexpr uint16_t kSwitchRole = 0x080B;
inline constexpr uint16_t kReadLinkPolicy = 0x080C;
inline constexpr uint16_t kWriteLinkPolicy = 0x080D;
inline constexpr uint16_t kReadDefaultLinkPolicy = 0x080E;
inline constexpr uint16_t kWriteDefaultLinkPolicy = 0x080F;

// Controller and baseband
inline constexpr uint16_t kSetEventMask = 0x0C01;
inline constexpr uint16_t kReset = 0x0C03;
inline constexpr uint16_t kSetEventFilter = 0x0C05;
inline constexpr uint16_t kReadStoredLinkKey = 0x0C0D;
inline constexpr uint16_t kDeleteStoredLinkKey = 0x0C12;
inline constexpr uint16_t kWriteLocalName = 0x0C13;
inline constexpr uint16_t kReadLocalName = 0x0C14;
inline constexpr uint16_t kReadConnectionAcceptTimeout = 0x0C15;
inline constexpr uint16_t kWriteConnectionAcceptTimeout = 0x0C16;
inline constexpr uint16_t kReadPageTimeout = 0x0C17;
inline constexpr uint16_t kWritePageTimeout = 0x0C18;
inline constexpr uint16_t kReadScanEnable = 0x0C19;
inline constexpr uint16_t kWriteScanEnable = 0x0C1A;
inline constexpr uint16_t kReadPageScanActivity = 0x0C1B;
inline constexpr uint16_t kWritePageScanActivity = 0x0C1C;
inline constexpr uint16_t kReadInquiryScanActivity = 0x0C1D;
inline constexpr uint16_t kWriteInquiryScanActivity = 0x0C1E;
inline constexpr uint16_t kReadAuthenticationEnable = 0x0C1F;
inline constexpr uint16_t kWriteAuthenticationEnable = 0x0C20;
inline constexpr uint16_t kReadClassOfDevice = 0x0C23;
inline constexpr uint16_t kWriteClassOfDevice = 0x0C24;
inline constexpr uint16_t kReadVoiceSetting = 0x0C25;
inline constexpr uint16_t kWriteVoiceSetting = 0x0C26;
inline constexpr uint16_t kReadTransmitPowerLevel = 0x0C2D;
inline constexpr uint16_t kReadSynchronousFlowControl = 0x0C2E;
inline constexpr uint16_t kWriteSynchronousFlowControl = 0x0C2F;
inline constexpr uint16_t kSetControllerToHostFlowControl = 0x0C31;
inline constexpr uint16_t kHostBufferSize = 0x0C33;
inline constexpr uint16_t kHostCompletedPackets = 0x0C35;
inline constexpr uint16_t kReadSupervisionTimeout = 0x0C36;
inline constexpr uint16_t kWriteSupervisionTimeout = 0x0C37;
inline constexpr uint16_t kReadNumberOfSupportedIac = 0x0C38;
inline constexpr uint16_t kReadCurrentIac = 0x0C39;
inline constexpr uint16_t kWriteCurrentIac = 0x0C3A;
inline constexpr uint16_t kSetAfhClassification = 0x0C3F;
inline constexpr uint16_t kReadInquiryScanType = 0x0C42;
inline constexpr uint16_t kWriteInquiryScanType = 0x0C43;
inline constexpr uint16_t kReadInquiryMode = 0x0C44;
inline constexpr uint16_t kWriteInquiryMode = 0x0C45;
inline constexpr uint16_t kReadPageScanType = 0x0C46;
inline constexpr uint16_t kWritePageScanType = 0x0C47;
inline constexpr uint16_t kReadAfhAssessment = 0x0C48;
inline constexpr uint16_t kWriteAfhAssessment = 0x0C49;
inline constexpr uint16_t kReadExtendedInquiryResponse = 0x0C51;
inline constexpr uint16_t kWriteExtendedInquiryResponse = 0x0C52;
inline constexpr uint16_t kReadSimplePairingMode = 0x0C55;
inline constexpr uint16_t kWriteSimplePairingMode = 0x0C56;
inline constexpr uint16_t kReadLocalOobData = 0x0C57;
inline constexpr uint16_t kReadInquiryTransmitPower = 0x0C58;
inline constexpr uint16_t kWriteInquiryTransmitPower = 0x0C59;
inline constexpr uint16_t kReadErroneousDataReporting = 0x0C5A;
inline constexpr uint16_t kWriteErroneousDataReporting = 0x0C5B;
inline constexpr uint16_t kSetEventMaskPage2 = 0x0C63;
inline constexpr uint16_t kReadLeHostSupport = 0x0C6C;
inline constexpr uint16_t kWriteLeHostSupport = 0x0C6D;

// Informational, status, testing
inline constexpr uint16_t kReadLocalVersion = 0x1001;
inline constexpr uint16_t kReadLocalCommands = 0x1002;
inline constexpr uint16_t kReadLocalFeatures = 0x1003;
inline constexpr uint16_t kReadLocalExtendedFeatures = 0x1004;
inline constexpr uint16_t kReadBufferSize = 0x1005;
inline constexpr uint16_t kReadCountryCode = 0x1007;
inline constexpr uint16_t kReadBdAddr = 0x1009;
inline constexpr uint16_t kReadLocalCodecs = 0x100B;
inline constexpr uint16_t kReadLinkQuality = 0x1403;
inline constexpr uint16_t kReadRssi = 0x1405;
inline constexpr uint16_t kReadAfhChannelMap = 0x1406;
inline constexpr uint16_t kReadClock = 0x1407;
inline constexpr uint16_t kReadEncryptionKeySize = 0x1408;
inline constexpr uint16_t kReadLoopbackMode = 0x1801;
inline constexpr uint16_t kWriteLoopbackMode = 0x1802;

// Low energy
inline constexpr uint16_t kLeSetEventMask = 0x2001;
inline constexpr uint16_t kLeReadBufferSize = 0x2002;
inline constexpr uint16_t kLeReadLocalFeatures = 0x2003;
inline constexpr uint16_t kLeSetRandomAddress = 0x2005;
inline constexpr uint16_t kLeSetAdvertisingParameters = 0x2006;
inline constexpr uint16_t kLeReadAdvertisingPower = 0x2007;
inline constexpr uint16_t kLeSetAdvertisingData = 0x2008;
inline constexpr uint16_t kLeSetScanResponseData = 0x2009;
inline constexpr uint16_t kLeSetAdvertisingEnable = 0x200A;
inline constexpr uint16_t kLeSetScanParameters = 0x200B;
inline constexpr uint16_t kLeSetScanEnable = 0x200C;
inline constexpr uint16_t kLeCreateConnection = 0x200D;
inline constexpr uint16_t kLeCreateConnectionCancel = 0x200E;
inline constexpr uint16_t kLeReadAcceptListSize = 0x200F;
inline constexpr uint16_t kLeClearAcceptList = 0x2010;
inline constexpr uint16_t kLeAddToAcceptList = 0x2011;
inline constexpr uint16_t kLeRemoveFromAcceptList = 0x2012;
inline constexpr uint16_t kLeConnectionUpdate = 0x2013;
inline constexpr uint16_t kLeSetChannelClassification = 0x2014;
inline constexpr uint16_t kLeReadChannelMap = 0x2015;
inline constexpr uint16_t kLeReadRemoteFeatures = 0x2016;
inline constexpr uint16_t kLeEncrypt = 0x2017;
inline constexpr uint16_t kLeRand = 0x2018;
inline constexpr uint16_t kLeEnableEncryption = 0x2019;
inline constexpr uint16_t kLeLongTermKeyReply = 0x201A;
inline constexpr uint16_t kLeLongTermKeyNegativeReply = 0x201B;
inline constexpr uint16_t kLeReadSupportedStates = 0x201C;
inline constexpr uint16_t kLeRemoteParametersReply = 0x2020;
inline constexpr uint16_t kLeRemoteParametersNegativeReply = 0x2021;
inline constexpr uint16_t kLeSetDataLength = 0x2022;
inline constexpr uint16_t kLeReadSuggestedDataLength = 0x2023;
inline constexpr uint16_t kLeWriteSuggestedDataLength = 0x2024;
inline constexpr uint16_t kLeReadP256PublicKey = 0x2025;
inline constexpr uint16_t kLeGenerateDhKey = 0x2026;
inline constexpr uint16_t kLeAddToResolvingList = 0x2027;
inline constexpr uint16_t kLeRemoveFromResolvingList = 0x2028;
inline constexpr uint16_t kLeClearResolvingList = 0x2029;
inline constexpr uint16_t kLeReadResolvingListSize = 0x202A;
inline constexpr uint16_t kLeReadPeerResolvableAddress = 0x202B;
inline constexpr uint16_t kLeReadLocalResolvableAddress = 0x202C;
inline constexpr uint16_t kLeSetAddressResolution = 0x202D;
inline constexpr uint16_t kLeSetResolvableAddressTimeout = 0x202E;
inline constexpr uint16_t kLeReadMaximumDataLength = 0x202F;
inline constexpr uint16_t kLeReadPhy = 0x2030;
inline constexpr uint16_t kLeSetDefaultPhy = 0x2031;
inline constexpr uint16_t kLeSetPhy = 0x2032;
inline constexpr uint16_t kLeSetAdvertisingSetAddress = 0x2035;
inline constexpr uint16_t kLeSetExtendedAdvertisingParameters = 0x2036;
inline constexpr uint16_t kLeSetExtendedAdvertisingData = 0x2037;
inline constexpr uint16_t kLeSetExtendedScanResponseData = 0x2038;
inline constexpr uint16_t kLeSetExtendedAdvertisingEnable = 0x2039;
inline constexpr uint16_t kLeReadMaximumAdvertisingDataLength = 0x203A;
inline constexpr uint16_t kLeReadNumberOfAdvertisingSets = 0x203B;
inline constexpr uint16_t kLeRemoveAdvertisingSet = 0x203C;
inline constexpr uint16_t kLeClearAdvertisingSets = 0x203D;
inline constexpr uint16_t kLeSetExtendedScanParameters = 0x2041;
inline constexpr uint16_t kLeSetExtendedScanEnable = 0x2042;
inline constexpr uint16_t kLeExtendedCreateConnection = 0x2043;
inline constexpr uint16_t kLeReadTransmitPower = 0x204B;
inline constexpr uint16_t kLeSetPrivacyMode = 0x204E;
inline constexpr uint16_t kLeReadBufferSizeV2 = 0x2060;

// The maker's own
inline constexpr unsigned kVendorGroup = 0x3F;
inline constexpr uint16_t kWriteBdAddr = 0xFC01;
inline constexpr uint16_t kUpdateBaudRate = 0xFC18;
inline constexpr uint16_t kSetSleepMode = 0xFC27;
inline constexpr uint16_t kDownloadMinidriver = 0xFC2E;
inline constexpr uint16_t kWriteRam = 0xFC4C;
inline constexpr uint16_t kLaunchRam = 0xFC4E;
inline constexpr uint16_t kReadVersion = 0xFC79;
inline constexpr uint16_t kReadCapabilities = 0xFD53;
inline constexpr uint16_t kDebugInformation = 0xFD5B;
inline constexpr uint16_t kQualityReports = 0xFD5E;
inline constexpr uint16_t kFinder = 0xFD62;
inline constexpr uint16_t kCheckOtp = 0xFE2F;
inline constexpr uint16_t kSetDownloadConfig = 0xFE72;

}  // namespace bthal::sim
