/*
 * The properties of com.orvane.velmar.system.NicPort for the raw server: D-Bus name, signature,
 * C type.
 */
#define NIC_PORT_PROPERTIES(X)                                                                     \
    X(FQDD, "s", const char*)                                                                      \
    X(AutoNegotiation, "y", uint8_t)                                                               \
    X(FamilyDriverVersion, "s", const char*)                                                       \
    X(LinkDuplex, "y", uint8_t)                                                                    \
    X(LinkSpeed, "y", uint8_t)                                                                     \
    X(NWManagementPassThrough, "y", uint8_t)                                                       \
    X(MediaType, "q", uint16_t)                                                                    \
    X(ReceiveFlowControl, "y", uint8_t)                                                            \
    X(TransmitFlowControl, "y", uint8_t)                                                           \
    X(FCoRMAxNumberOfFCTargets, "q", uint16_t)                                                     \
    X(FlexAddressingSupport, "y", uint8_t)                                                         \
    X(iSCSIOffloadSupport, "y", uint8_t)                                                           \
    X(iSCSIBootSupport, "y", uint8_t)                                                              \
    X(FCoEOffloadSupport, "y", uint8_t)                                                            \
    X(FCoEBootSupport, "y", uint8_t)                                                               \
    X(PXEBootSupport, "y", uint8_t)                                                                \
    X(VFSRIOVSupport, "y", uint8_t)                                                                \
    X(WOLSupport, "y", uint8_t)                                                                    \
    X(NWManagemnetPassThrough, "y", uint8_t)                                                       \
    X(OSBMCManagementPassThrough, "y", uint8_t)                                                    \
    X(EnergyEfficientEthernet, "y", uint8_t)                                                       \
    X(OnChipThermalSensor, "y", uint8_t)                                                           \
    X(NicPartitioningSupport, "y", uint8_t)                                                        \
    X(RDMASupport, "y", uint8_t)                                                                   \
    X(OpenFlowSupport, "y", uint8_t)                                                               \
    X(VirtualLinkControl, "y", uint8_t)                                                            \
    X(RXFlowControl, "y", uint8_t)                                                                 \
    X(TXFlowControl, "y", uint8_t)                                                                 \
    X(TXBandwidthControlMaximum, "y", uint8_t)                                                     \
    X(TXBandwidthControlMinimum, "y", uint8_t)                                                     \
    X(VAMCapable, "y", uint8_t)                                                                    \
    X(ReceiveTotalBytes, "t", uint64_t)                                                            \
    X(TransmitTotalBytes, "t", uint64_t)                                                           \
    X(ReceiveTotalUnicast, "t", uint64_t)                                                          \
    X(ReceiveTotalMulticast, "t", uint64_t)                                                        \
    X(ReceiveTotalBroadcast, "t", uint64_t)                                                        \
    X(TransmitTotalUnicast, "t", uint64_t)                                                         \
    X(TransmitTotalMulticast, "t", uint64_t)                                                       \
    X(TransmitTotalBroadcast, "t", uint64_t)                                                       \
    X(ReceiveErrorPktFCSErrors, "u", uint32_t)                                                     \
    X(ReceiveErrorPktAlignmentErrors, "u", uint32_t)                                               \
    X(ReceiveFalseCarrierDetection, "u", uint32_t)                                                 \
    X(ReceiveRuntPkt, "u", uint32_t)                                                               \
    X(ReceiveJabberPkt, "u", uint32_t)                                                             \
    X(ReceiveTotalPauseXONFrames, "u", uint32_t)                                                   \
    X(ReceiveTotalPauseXOFFFrames, "u", uint32_t)                                                  \
    X(DiscardedPkts, "u", uint32_t)                                                                \
    X(TransmitTotalPauseXONFrames, "u", uint32_t)                                                  \
    X(TransmitTotalPauseXOFFFrames, "u", uint32_t)                                                 \
    X(TransmitErrorPktSingleCollision, "u", uint32_t)                                              \
    X(TransmitErrorPktMultipleCollision, "u", uint32_t)                                            \
    X(TransmitErrorPktLateCollision, "u", uint32_t)                                                \
    X(TransmitErrorPktExcessiveCollision, "u", uint32_t)                                           \
    X(StatisticsStartTime, "u", uint32_t)                                                          \
    X(StatisticsTime, "u", uint32_t)                                                               \
    X(LinkStatus, "y", uint8_t)                                                                    \
    X(OSDriverState, "y", uint8_t)                                                                 \
    X(PartitionCount, "y", uint8_t)                                                                \
    X(dohObjStatus, "y", uint8_t)                                                                  \
    X(FriendlyFQDD, "s", const char*)
