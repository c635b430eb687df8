// SPDX-License-Identifier: Apache-2.0
// A laptop's ACPI devices over a page of registers: QEMU's pc-testdev keeps the 64 KiB at 0xff000000 as plain storage, so
// whoever writes there (guest/vmctl) changes what the battery, the adapter, the lid, the thermal zone and the power meter
// say. The thermal zone is polled once a second by the kernel; that poll raises the notifications that on real hardware
// come from the embedded controller. The kernel's own ACPI battery, ac, button, thermal and acpi_power_meter drivers sit on top.
DefinitionBlock ("", "SSDT", 2, "VMLAB ", "LAPTOP", 1)
{
  Scope (\_SB)
  {
    OperationRegion (VREG, SystemMemory, 0xFF000000, 0x100)
    Field (VREG, DWordAcc, NoLock, Preserve)
    {
      ACON, 32,  // 0x00 adapter online
      LIDC, 32,  // 0x04 lid closed (a page of zeros is an open lid, or logind suspends the guest while it boots)
      TMPR, 32,  // 0x08 zone temperature, tenths of a kelvin
      MTRP, 32,  // 0x0c power meter, mW
      Offset (0x20),
      PRS0, 32,  // 0x20 battery 0: present
      STA0, 32,  // 0x24 1 discharging, 2 charging, 4 critical
      RTE0, 32,  // 0x28 rate, mW or mA
      REM0, 32,  // 0x2c remaining, mWh or mAh
      VLT0, 32,  // 0x30 mV
      DES0, 32,  // 0x34 design capacity
      FUL0, 32,  // 0x38 last full capacity
      CYC0, 32,  // 0x3c cycles
      UNI0, 32,  // 0x40 0 energy, 1 charge
      Offset (0x60),
      PRS1, 32, STA1, 32, RTE1, 32, REM1, 32, VLT1, 32, DES1, 32, FUL1, 32, CYC1, 32, UNI1, 32
    }
    Name (LACO, 0xFFFFFFFF)
    Name (LLID, 0xFFFFFFFF)
    Name (LSU0, 0) Name (LPR0, 0xFFFFFFFF) Name (LFU0, 0)
    Name (LSU1, 0) Name (LPR1, 0xFFFFFFFF) Name (LFU1, 0)

    Device (ADP1)
    {
      Name (_HID, "ACPI0003")
      Name (_PCL, Package () { \_SB })
      Method (_PSR) { Return (ACON) }
      Method (_STA) { Return (0x0F) }
    }

    Device (BAT0)
    {
      Name (_HID, EisaId ("PNP0C0A"))
      Name (_UID, 0)
      Name (_PCL, Package () { \_SB })
      Method (_STA) { If (PRS0) { Return (0x1F) } Return (0x0F) }
      Name (PIX0, Package () { 0, 0, 0, 0, 1, 11400, 0, 0, 0, 95000, 1000, 500, 1000, 500, 10, 10, "LAB-57X", "00421", "LION", "VMLAB" })
      Method (_BIX)
      {
        PIX0 [1] = UNI0  PIX0 [2] = DES0  PIX0 [3] = FUL0
        PIX0 [6] = (FUL0 / 10)  PIX0 [7] = (FUL0 / 25)  PIX0 [8] = CYC0
        Return (PIX0)
      }
      Name (PST0, Package () { 0, 0, 0, 0 })
      Method (_BST) { PST0 [0] = STA0  PST0 [1] = RTE0  PST0 [2] = REM0  PST0 [3] = VLT0  Return (PST0) }
    }

    Device (BAT1)
    {
      Name (_HID, EisaId ("PNP0C0A"))
      Name (_UID, 1)
      Name (_PCL, Package () { \_SB })
      Method (_STA) { If (PRS1) { Return (0x1F) } Return (0x0F) }
      Name (PIX1, Package () { 0, 0, 0, 0, 1, 7600, 0, 0, 0, 95000, 1000, 500, 1000, 500, 10, 10, "LAB-23S", "00977", "LiP", "VMLAB" })
      Method (_BIX)
      {
        PIX1 [1] = UNI1  PIX1 [2] = DES1  PIX1 [3] = FUL1
        PIX1 [6] = (FUL1 / 10)  PIX1 [7] = (FUL1 / 25)  PIX1 [8] = CYC1
        Return (PIX1)
      }
      Name (PST1, Package () { 0, 0, 0, 0 })
      Method (_BST) { PST1 [0] = STA1  PST1 [1] = RTE1  PST1 [2] = REM1  PST1 [3] = VLT1  Return (PST1) }
    }

    Device (LID0)
    {
      Name (_HID, EisaId ("PNP0C0D"))
      Method (_LID) { Return (LNot (LIDC)) }
    }

    Device (PMTR)
    {
      Name (_HID, "ACPI000D")
      Name (PMC0, Package () { 1, 0, 0, 95000, 1000, 1000, 60000, 0, 0, 0, 0, "LAB-PM", "PM1", "VMLAB" })
      Method (_PMC) { Return (PMC0) }
      Method (_PMM) { Return (MTRP) }
      Method (_GAI) { Return (1000) }
      Method (_PAI, 1) { Return (0) }
      Method (_PMD) { Return (Package () { \_SB }) }
    }

    Method (CHKN)
    {
      If (LACO != ACON) { If (LACO != 0xFFFFFFFF) { Notify (ADP1, 0x80) } LACO = ACON }
      If (LLID != LIDC) { If (LLID != 0xFFFFFFFF) { Notify (LID0, 0x80) } LLID = LIDC }
      Local0 = (STA0 << 24) + REM0
      If (LPR0 != PRS0) { Notify (BAT0, 0x81) LPR0 = PRS0 }
      ElseIf (LFU0 != (FUL0 + (CYC0 << 24))) { Notify (BAT0, 0x81) }
      ElseIf (LSU0 != Local0) { Notify (BAT0, 0x80) }
      LSU0 = Local0
      LFU0 = (FUL0 + (CYC0 << 24))
      Local0 = (STA1 << 24) + REM1
      If (LPR1 != PRS1) { Notify (BAT1, 0x81) LPR1 = PRS1 }
      ElseIf (LFU1 != (FUL1 + (CYC1 << 24))) { Notify (BAT1, 0x81) }
      ElseIf (LSU1 != Local0) { Notify (BAT1, 0x80) }
      LSU1 = Local0
      LFU1 = (FUL1 + (CYC1 << 24))
    }
  }

  Scope (\_TZ)
  {
    ThermalZone (TZ00)
    {
      Name (_TZP, 10)
      Method (_CRT) { Return (3782) }
      Method (_HOT) { Return (3732) }
      Method (_TMP)
      {
        \_SB.CHKN ()
        If (\_SB.TMPR == 0) { Return (3002) }
        Return (\_SB.TMPR)
      }
    }
  }
}
