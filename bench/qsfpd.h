/*
 * The properties of com.orvane.velmar.system.QSFPD for the raw server: D-Bus name, signature,
 * C type.
 */
#define QSFPD_PROPERTIES(X)                                                                        \
    X(InterfaceType, "y", uint8_t)                                                                 \
    X(StatisticsTime, "u", uint32_t)                                                               \
    X(StatusCode, "y", uint8_t)                                                                    \
    X(Identifier, "y", uint8_t)                                                                    \
    X(ExtIdentifier, "y", uint8_t)                                                                 \
    X(VendorName, "s", const char*)                                                                \
    X(Vendor_PN, "s", const char*)                                                                 \
    X(Vendor_Rev, "s", const char*)                                                                \
    X(Vendor_SN, "s", const char*)                                                                 \
    X(TempHighAlarmThreshold, "q", uint16_t)                                                       \
    X(TempHighWarningThreshold, "q", uint16_t)                                                     \
    X(TempValue, "d", double)                                                                      \
    X(VoltageValue, "d", double)                                                                   \
    X(TemperatureStatus, "y", uint8_t)                                                             \
    X(VoltageStatus, "y", uint8_t)                                                                 \
    X(TXBiasCurrentValue, "d", double)                                                             \
    X(TxBiasCurrentStatus, "y", uint8_t)                                                           \
    X(TxOutputPowerStatus, "y", uint8_t)                                                           \
    X(TXOutputPowerValue, "d", double)                                                             \
    X(RxInputPowerStatus, "y", uint8_t)                                                            \
    X(RXInputPowerValue, "d", double)                                                              \
    X(RX1InputPowerValue, "q", uint16_t)                                                           \
    X(RX2InputPowerValue, "q", uint16_t)                                                           \
    X(RX3InputPowerValue, "q", uint16_t)                                                           \
    X(RX4InputPowerValue, "q", uint16_t)                                                           \
    X(RX5InputPowerValue, "q", uint16_t)                                                           \
    X(RX6InputPowerValue, "q", uint16_t)                                                           \
    X(RX7InputPowerValue, "q", uint16_t)                                                           \
    X(RX8InputPowerValue, "q", uint16_t)                                                           \
    X(TX1BiasCurrentValue, "q", uint16_t)                                                          \
    X(TX2BiasCurrentValue, "q", uint16_t)                                                          \
    X(TX3BiasCurrentValue, "q", uint16_t)                                                          \
    X(TX4BiasCurrentValue, "q", uint16_t)                                                          \
    X(TX5BiasCurrentValue, "q", uint16_t)                                                          \
    X(TX6BiasCurrentValue, "q", uint16_t)                                                          \
    X(TX7BiasCurrentValue, "q", uint16_t)                                                          \
    X(TX8BiasCurrentValue, "q", uint16_t)                                                          \
    X(TX1OutputPowerValue, "q", uint16_t)                                                          \
    X(TX2OutputPowerValue, "q", uint16_t)                                                          \
    X(TX3OutputPowerValue, "q", uint16_t)                                                          \
    X(TX4OutputPowerValue, "q", uint16_t)                                                          \
    X(TX5OutputPowerValue, "q", uint16_t)                                                          \
    X(TX6OutputPowerValue, "q", uint16_t)                                                          \
    X(TX7OutputPowerValue, "q", uint16_t)                                                          \
    X(TX8OutputPowerValue, "q", uint16_t)                                                          \
    X(Vcc_Temperature_Flag, "y", uint8_t)                                                          \
    X(TXPowerHighAlarmFlag, "y", uint8_t)                                                          \
    X(TXPowerLowAlarmFlag, "y", uint8_t)                                                           \
    X(TXPowerHighWarningFlag, "y", uint8_t)                                                        \
    X(TXPowerLowWarningFlag, "y", uint8_t)                                                         \
    X(TXBiasHighAlarmFlag, "y", uint8_t)                                                           \
    X(TXBiasLowAlarmFlag, "y", uint8_t)                                                            \
    X(TXBiasHighWarningFlag, "y", uint8_t)                                                         \
    X(TXBiasLowWarningFlag, "y", uint8_t)                                                          \
    X(RXPowerHighAlarmFlag, "y", uint8_t)                                                          \
    X(RXPowerLowAlarmFlag, "y", uint8_t)                                                           \
    X(RXPowerHighWarningFlag, "y", uint8_t)                                                        \
    X(RXPowerLowWarningFlag, "y", uint8_t)                                                         \
    X(HostLaneCount, "y", uint8_t)                                                                 \
    X(MediaLaneCount, "y", uint8_t)                                                                \
    X(FQDD, "s", const char*)                                                                      \
    X(VccHighAlarmThreshold, "d", double)                                                          \
    X(VccLowAlarmThreshold, "d", double)                                                           \
    X(VccHighWarnThreshold, "d", double)                                                           \
    X(VccLowWarnThreshold, "d", double)                                                            \
    X(TxPowerHighAlarmThreshold, "d", double)                                                      \
    X(TxPowerLowAlarmThreshold, "d", double)                                                       \
    X(TxPowerHighWarnThreshold, "d", double)                                                       \
    X(TxPowerLowWarnThreshold, "d", double)                                                        \
    X(TxBiasHighAlarmThreshold, "d", double)                                                       \
    X(TxBiasLowAlarmThreshold, "d", double)                                                        \
    X(TxBiasHighWarnThreshold, "d", double)                                                        \
    X(TxBiasLowWarnThreshold, "d", double)                                                         \
    X(RxPowerHighAlarmThreshold, "d", double)                                                      \
    X(RxPowerLowAlarmThreshold, "d", double)                                                       \
    X(RxPowerHighWarnThreshold, "d", double)                                                       \
    X(RxPowerLowWarnThreshold, "d", double)                                                        \
    X(TempLowAlarmThreshold, "n", int16_t)                                                         \
    X(TempLowWarningThreshold, "n", int16_t)                                                       \
    X(CmisRevision, "s", const char*)                                                              \
    X(MemoryModel, "y", uint8_t)                                                                   \
    X(SupportedPages, "y", uint8_t)                                                                \
    X(LoopbackCaps, "y", uint8_t)                                                                  \
    X(DiagMeasurementsCaps, "y", uint8_t)                                                          \
    X(DiagReportingCaps, "y", uint8_t)                                                             \
    X(PatternGenAndCheckingLocation, "y", uint8_t)                                                 \
    X(PatternGenCapsHostSide, "q", uint16_t)                                                       \
    X(PatternGenCapsMediaSide, "q", uint16_t)                                                      \
    X(DataPathState, "u", uint32_t)                                                                \
    X(LaneOutputStatusRX, "y", uint8_t)                                                            \
    X(LaneOutputStatusTX, "y", uint8_t)                                                            \
    X(LaserWavelength, "d", double)                                                                \
    X(LaserWavelengthTolerance, "d", double)
