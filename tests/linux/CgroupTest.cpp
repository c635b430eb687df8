// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/processes/CgroupPath.h"
#include "platform/linux/processes/CgroupUnits.h"
#include "platform/linux/processes/ContainerNames.h"
#include "tests/support/HandWork.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

namespace meridal {
namespace {

using Kind = ProcessUnitKind;

const std::string id = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
const std::string shortId = "0123456789ab";

std::string with(std::string text)
{
    for (std::size_t at; (at = text.find("ID")) != std::string::npos;) {
        text.replace(at, 2, id);
    }
    return text;
}

TEST(UnitOfCgroup, KnowsTheLayoutsOfServiceManagersAndContainers)
{
    const struct {
        const char* path; ///< ID stands for that of a container
        Kind kind;
        std::string key;
        std::string name = "";
        std::string application = "";
    } cases[] = {
        {"/", Kind::Shared, ""},
        {"/init.scope", Kind::Shared, "/init.scope"},
        {"/user.slice/user-1.slice/session-3.scope", Kind::Shared, "/user.slice/user-1.slice/session-3.scope"},
        {"/user.slice/user-1.slice/user@1.service/init.scope", Kind::Shared,
            "/user.slice/user-1.slice/user@1.service/init.scope"},
        {"/system.slice/nginx.service/a/b", Kind::Application, "/system.slice/nginx.service"},
        // Desktops
        {"/u/user@1.service/app.slice/app-gnome-google\\x2dchrome-77.scope/tab", Kind::Application,
            "/u/user@1.service/app.slice/app-gnome-google\\x2dchrome-77.scope", "", "google-chrome"},
        {"/u/app-org.kde.konsole@8a1f.service", Kind::Application, "/u/app-org.kde.konsole@8a1f.service", "",
            "org.kde.konsole"},
        {"/u/app-KDE-org.kde.okular-12345.service", Kind::Application, "/u/app-KDE-org.kde.okular-12345.service", "",
            "org.kde.okular"},
        {"/u/dbus-:1.2-org.gnome.Nautilus@0.service", Kind::Application, "/u/dbus-:1.2-org.gnome.Nautilus@0.service",
            "", "org.gnome.Nautilus"},
        {"/u/app-flatpak-org.a\\x2db.App-4711.scope", Kind::Application, "/u/flatpak org.a-b.App", "org.a-b.App",
            "org.a-b.App"},
        {"/u/snap.firefox.firefox-0a1b2c3d-0123-4567-89ab-0123456789ab.scope", Kind::Application, "/u/snap firefox",
            "firefox", "firefox_firefox"},
        {"/u/snap.lxd.lxc.0a1b2c3d\\x2d0123\\x2d4567\\x2d89ab\\x2d0123456789ab.scope", Kind::Application,
            "/u/snap lxd.lxc", "lxd.lxc", "lxd_lxc"},
        // Containers, with systemd and without
        {"/system.slice/docker-ID.scope/init.scope", Kind::Container, "/system.slice/docker-ID.scope", shortId},
        {"/docker/ID", Kind::Container, "/docker/ID", shortId},
        {"/machine.slice/libpod-ID.scope/container", Kind::Container, "/machine.slice/libpod-ID.scope", shortId},
        {"/u/user.slice/libpod-conmon-ID.scope", Kind::Application, "/u/user.slice/libpod-conmon-ID.scope"},
        {"/system.slice/web.service/libpod-payload-ID", Kind::Container, "/system.slice/web.service/libpod-payload-ID",
            shortId},
        {"/kubepods.slice/kubepods-pod1.slice/cri-containerd-ID.scope", Kind::Container,
            "/kubepods.slice/kubepods-pod1.slice/cri-containerd-ID.scope", shortId},
        {"/kubepods/burstable/pod1-2/ID/system.slice/docker-ID.scope", Kind::Container, "/kubepods/burstable/pod1-2/ID",
            shortId},
        {"/system.slice/containerd.service/kubepods-pod1.slice:cri-containerd:ID", Kind::Container,
            "/system.slice/containerd.service/kubepods-pod1.slice:cri-containerd:ID", shortId},
        {"/kubepods.slice/crio-ID.scope", Kind::Container, "/kubepods.slice/crio-ID.scope", shortId},
        {"/lxc.payload.web/system.slice/ssh.service", Kind::Container, "/lxc.payload.web", "web"},
        {"/lxc.monitor.web", Kind::Shared, ""},
        {"/lxc/101/ns/init.scope", Kind::Container, "/lxc/101", "101"},
        {"/machine.slice/systemd-nspawn@my\\x2dbox.service/payload/x.service", Kind::Container,
            "/machine.slice/systemd-nspawn@my\\x2dbox.service", "my-box"},
        {"/machine.slice/machine-deb\\x2dian.scope", Kind::Container, "/machine.slice/machine-deb\\x2dian.scope",
            "deb-ian"},
        {"/machine.slice/machine-qemu\\x2d2\\x2dwin\\x2d11.scope/libvirt/vcpu0", Kind::Container,
            "/machine.slice/machine-qemu\\x2d2\\x2dwin\\x2d11.scope", "win-11"},
    };
    for (const auto& each : cases) {
        const CgroupUnit unit = unitOfCgroup(with(each.path));
        EXPECT_EQ(unit.kind, each.kind) << each.path;
        EXPECT_EQ(unit.key, with(each.key)) << each.path;
        EXPECT_EQ(unit.name, each.name) << each.path;
        EXPECT_EQ(unit.application, each.application) << each.path;
        EXPECT_EQ(unit.container, each.name == shortId ? id : "") << each.path;
    }
}

TEST(UnitOfCgroup, IsKnownByWhatLasts)
{
    const struct {
        const char* path;
        const char* identity;
    } cases[] = {
        {"/system.slice/nginx.service/a", "unit:nginx.service"},
        {"/system.slice/system-getty.slice/getty@tty1.service", "unit:getty@.service"},
        {"/system.slice/run-u123.service", ""},
        {"/system.slice/run-r0123456789abcdef.scope", ""},
        {"/system.slice/md5sum.service", "unit:md5sum.service"},
        {"/u/user@1.service/app.slice/vte-spawn-0a1b2c3d-0123.scope", ""},
        {"/system.slice/lasting.scope", "unit:lasting.scope"},
        {"/user.slice/user-1.slice/session-3.scope", ""},
        {"/u/user@1000.service/app.slice/app-gnome-firefox-1234.scope", "app:firefox"},
        {"/u/app-flatpak-org.a\\x2db.App-4711.scope", "app:org.a-b.App"},
        {"/system.slice/docker-ID.scope", "container:0123456789ab"},
        {"/lxc.payload.web", "container:web"},
        {"/", ""},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(lastingIdentity(unitOfCgroup(with(each.path))), each.identity) << each.path;
    }
}

TEST(PlaceInCgroups, TheUnifiedHierarchyGoesBeforeTheOlderOnes)
{
    const struct {
        std::string text;
        std::string key;
        bool byUnified;
    } cases[] = {
        {"0::/system.slice/a.service (deleted)\n", "/system.slice/a.service", true},
        {"0::/\n", "", true},
        {"3:cpu:/x\n1:name=systemd:/system.slice/b.service\n0::/system.slice/a.service\n", "/system.slice/a.service",
            true},
        {"3:cpu:/system.slice/c.service\n1:name=systemd:/system.slice/b.service\n0::/\n", "/system.slice/b.service",
            false},
        {"3:cpu:/system.slice/c.service\n", "", false},
        {with("3:cpu:/docker/ID\n0::/\n"), "/docker/" + id, false},
        {"nonsense\n0::/x.service", "", true},
    };
    for (const auto& each : cases) {
        const CgroupPlace place = placeInCgroups(each.text);
        EXPECT_EQ(place.unit.key, each.key) << each.text;
        EXPECT_EQ(place.byUnified, each.byUnified) << each.text;
    }
}

TEST(ContainerName, IsWhatTheRuntimesFilesSay)
{
    const test::TemporaryTree tree{
        {with("var/lib/docker/containers/ID/config.v2.json"), R"({"ID":"x","Name":"/proxy"})"}};
    const RootFolder root(tree.root());
    EXPECT_EQ(containerName(root, id), "proxy");
    tree.write("etc/docker/daemon.json", R"({"data-root":"/srv/docker"})");
    EXPECT_EQ(containerName(root, id), std::nullopt) << "they are elsewhere";
    tree.write("var/lib/containers/storage/overlay-containers/containers.json",
        with(R"([{"id":"other","names":["a"]},7,{"id":"ID","names":["box","alias"]}])"));
    EXPECT_EQ(containerName(root, id), "box");
    tree.write(with("var/log/containers/shop-7d_default_web-ID.log"), "");
    EXPECT_EQ(containerName(root, id), "shop-7d/web");
    EXPECT_EQ(containerName(root, "other"), "a");
}

TEST(CgroupUnits, NamesAreFoundLateAndWhatNobodyIsInIsForgotten)
{
    const test::TemporaryTree tree{{"proc/7/cgroup", with("0::/docker/ID\n")},
        {"proc/8/cgroup", "0::/u/app-gnome-firefox-1.scope\n"}, {"proc/9/cgroup", "0::/u/app-gnome-other-1.scope\n"},
        {"usr/share/applications/firefox.desktop", ""}};
    tree.link("proc/8/exe", "/usr/bin/bwrap");
    tree.link("proc/9/exe", "/opt/other (deleted)");
    tree.link("proc/10/exe", "/home/ann/private/tool");
    tree.link("proc/11/exe", "/home/ann/public/tool");
    tree.write("proc/11/cmdline", std::string("/home/ann/public/tool\0-v\0", 25));
    ProcFolder processes(tree.root() / "proc");
    auto work = std::make_unique<test::HandWork>(std::make_shared<test::HandWork::Script>());
    test::HandWork& files = *work;
    CgroupUnits units(tree.root(), std::move(work));
    const ProcessUnit container = units.read(processes, 7, 0)->unit;
    const auto nameAfterAPass = [&] {
        files.wait([] { return false; }, 0);
        units.beginPass();
        return units.name(container);
    };
    EXPECT_EQ(units.name(container), shortId);
    EXPECT_EQ(nameAfterAPass(), shortId);
    tree.write(with("var/lib/docker/containers/ID/config.v2.json"), R"({"Name":"/late"})");
    EXPECT_EQ(units.name(container), shortId) << "nobody waits for files";
    EXPECT_EQ(nameAfterAPass(), "late");

    const ProcessUnit firefox = units.read(processes, 8, 0)->unit;
    EXPECT_EQ(units.bundleLocation(processes, 8, firefox), "firefox.desktop");
    EXPECT_EQ(units.bundleLocation(processes, 9, units.read(processes, 9, 0)->unit), "/opt/other") << "no such file";
    EXPECT_EQ(units.bundleLocation(processes, 10, {}), std::nullopt) << "only its owner is told";
    EXPECT_EQ(units.bundleLocation(processes, 11, {}), "/home/ann/public/tool") << "said by itself";

    units.keepOnly({firefox.number});
    EXPECT_EQ(units.size(), 1U);
    EXPECT_EQ(units.name(container), "");
    EXPECT_EQ(units.read(processes, 8, 0)->unit, firefox);
    EXPECT_NE(units.read(processes, 7, 0)->unit.number, container.number) << "never given out twice";
}

} // namespace
} // namespace meridal
