#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Configures the unpacked root file system given as $1.
set -euo pipefail
r=$1
echo lab >"$r/etc/hostname"
printf '127.0.0.1 localhost lab\n::1 localhost\n' >"$r/etc/hosts"
: >"$r/etc/fstab"
echo 'nameserver 10.0.2.3' >"$r/etc/resolv.conf"
mkdir -p "$r/var/log/journal"
echo 5f3a1c0de5f3a1c0de5f3a1c0de5f3a1 >"$r/etc/machine-id"
chroot "$r" passwd -d root >/dev/null
chroot "$r" useradd -m -s /bin/bash ben # anybody
mkdir -p "$r/etc/systemd/network" "$r/etc/systemd/sleep.conf.d" "$r/etc/systemd/journald.conf.d" "$r/etc/udev/rules.d"
cat >"$r/etc/systemd/network/10-dhcp.network" <<'E'
[Match]
Name=en* eth* wlan0

[Network]
DHCP=yes
LinkLocalAddressing=ipv6
IPv6AcceptRA=yes
E
printf "[Login]\nHandlePowerKey=ignore\nHandleLidSwitch=ignore\n" >"$r/etc/systemd/logind.conf"
printf '[Journal]\nStorage=persistent\n' >"$r/etc/systemd/journald.conf.d/lab.conf"
mkdir -p "$r/etc/NetworkManager/conf.d"
printf '[main]\nplugins=keyfile\n[keyfile]\nunmanaged-devices=interface-name:wlan1;interface-name:wlan2;interface-name:wlan3;interface-name:hwsim0;interface-name:veth*\n' >"$r/etc/NetworkManager/conf.d/lab.conf"
en() { chroot "$r" systemctl -q enable "$@"; }
chroot "$r" systemctl -q set-default multi-user.target
en vm-run.service systemd-networkd.service
for u in NetworkManager.service NetworkManager-wait-online.service NetworkManager-dispatcher.service systemd-networkd-wait-online.service \
         wpa_supplicant.service hostapd.service smartmontools.service lm-sensors.service upower.service apt-daily.timer \
         apt-daily-upgrade.timer e2scrub_all.timer fstrim.timer dpkg-db-backup.timer e2scrub_reap.service getty@tty1.service \
         systemd-timesyncd.service ModemManager.service iperf3.service vnstat.service; do
  chroot "$r" systemctl -q disable "$u" 2>/dev/null || true
done
for u in hostapd.service NetworkManager-wait-online.service systemd-networkd-wait-online.service \
         systemd-binfmt.service systemd-random-seed.service nvmf-autoconnect.service nvmefc-boot-connections.service \
         uuidd.socket systemd-pstore.service dev-hugepages.mount dev-mqueue.mount; do
  chroot "$r" systemctl -q mask "$u" 2>/dev/null || true
done
# Nothing to bring up to date at the first boot.
touch "$r/etc/.updated" "$r/var/.updated"
