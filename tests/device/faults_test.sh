#!/bin/bash
# Every check of the phone's build finds what it is for: each fault, made in a copy of the sources,
# fails the check that guards against it, with a message that names it. Some changes are no faults, to
# see that a check doesn't refuse what is right.
set -euo pipefail

checks=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$checks/../.." && pwd)
copy=$(mktemp -d)
trap 'rm -rf "$copy"' EXIT
export KORVANE_ROOT=$copy
daemon=hardware/interfaces/camera/desktop/2.0/default
program=$daemon/korvane.hardware.camera.desktop@2.0-service
policy=$daemon/sepolicy
failures=0

bad() {
    echo "faults: $*" >&2
    failures=$((failures + 1))
}

copy_sources() {
    mkdir -p "$copy/docs" "$copy/tests" "$copy/platform"
    cp -r "$root"/{Android.bp,LICENSE,external,hardware} "$copy"
    cp -r "$root/tests"/{Android.bp,unit,support} "$copy/tests"
    cp -r "$root/platform/interfaces" "$copy/platform"
    cp "$root"/docs/phone*.md "$copy/docs"
}

# refuses CHECK MESSAGE WHAT: the check must fail on the copy as it is, with a message that contains MESSAGE.
refuses() {
    local check=$1 message=$2 what=$3 said
    if said=$("$checks/${check}_test.sh" ${check_arguments:-} 2>&1); then
        bad "$check does not see: $what"
    elif [[ $said != *"$message"* ]]; then
        bad "$check does not say '$message' about: $what, but: $said"
    fi
}

# fault CHECK MESSAGE FILE SED_SCRIPT: the same with a file that the script has changed.
fault() {
    local file=$copy/$3
    cp "$file" "$copy/before"
    sed -i -E "$4" "$file"
    if cmp -s "$file" "$copy/before"; then
        bad "there is nothing to break in $3: $4"
    else
        refuses "$1" "$2" "$3: $4"
    fi
    cp "$copy/before" "$file"
}

copy_sources
for check in modules headers interfaces files policy policy_rules rapidjson sketch; do
    "$checks/${check}_test.sh" || bad "$check fails on what is right"
done

# ---- sources, libraries, flags ------------------------------------------------------------------
fault modules 'uvc/HotPlug.cpp' $daemon/Android.bp 's/HotPlugCtrl\.cpp/HotPlug.cpp/'
fault modules 'uvc/JpegBlob.cpp' $daemon/Android.bp '/JpegBlob\.cpp/d'
fault modules "',' is wanted" $daemon/Android.bp 's/"uvc\/JpegBlob\.cpp",/"uvc\/JpegBlob.cpp"/'
fault modules 'within a module' Android.bp '$ d'
fault modules 'Nv13CopyTest.cpp' tests/Android.bp 's/Nv12Copy/Nv13Copy/'
fault modules 'libyuv' $daemon/Android.bp '/"libyuv"/d'
fault modules 'libgui ' $daemon/Android.bp 's/"libgui_headers"/"libgui"/'
fault modules 'libhidltransport' $daemon/Android.bp 's/"libhidlbase",/&"libhidltransport",/'
fault modules 'libgui_bufferqueue_static' $daemon/Android.bp '/"libgui_bufferqueue_static"/d'
fault modules 'NO_BUFFERHUB' Android.bp '/NO_BUFFERHUB/d'
fault modules 'Wextra' Android.bp 's/-Wextra/-Wpedantic/'
fault modules 'vendor' Android.bp '/vendor: true/d'
fault modules 'service.rc, which is not there' $daemon/Android.bp 's/(init_rc.*)desktop@2.0-/\1/;s/camera.service.rc/camera-service.rc/'
fault modules 'JsonUtil.cpp' hardware/camera/common/libkorjsonutils/Android.bp 's/JsonUtils\.cpp/JsonUtil.cpp/'
fault modules 'types.hal' hardware/interfaces/camera/desktop/2.0/Android.bp '/types\.hal/d'
fault modules 'external/rapidjson/includes, which is not there' external/rapidjson/Android.bp \
    's/"include"/"includes"/'

# ---- RapidJSON ----------------------------------------------------------------------------------
rapidjson=external/rapidjson
fault rapidjson 'document.h' $rapidjson/include/rapidjson/document.h 's/Tencent/Korvane/'
fault rapidjson 'NOTICE' $rapidjson/NOTICE '/Milo Yip/d'
mv "$copy/$rapidjson/include/rapidjson/fwd.h" "$copy/before"
refuses rapidjson 'fwd.h' 'a header that is missing'
cp "$copy/before" "$copy/$rapidjson/include/rapidjson/fwd.h"
mv "$copy/before" "$copy/$rapidjson/include/rapidjson/ours.h"
refuses rapidjson 'ours.h' 'a header of our own'
rm "$copy/$rapidjson/include/rapidjson/ours.h"

# ---- headers and API ----------------------------------------------------------------------------
fault headers 'media/stagefright/bqhelper/WGraphicBufferProducer.h' $daemon/uvc/KorBufferSource.cpp \
    's/#include <gui\/bufferqueue\/1.0\/WG/#include <media\/stagefright\/bqhelper\/WG/'
fault headers '<sys/sdt.h>' $daemon/uvc/JpegBlob.cpp '$ a #include <sys/sdt.h>'
fault headers 'does not list libbase' $daemon/Android.bp '/"libbase"/d'
fault headers 'does not list libgui_headers' $daemon/Android.bp '/"libgui_headers"/d'
fault headers 'does not list liblog' hardware/camera/common/libkorjsonutils/Android.bp '/liblog/d'
fault headers 'sp<T> p = new' $daemon/uvc/JpegBlob.cpp '$ a auto p = sp<Foo>::make(1);'
fault headers 'without RTTI' $daemon/uvc/JpegBlob.cpp '$ a auto p = dynamic_cast<Foo*>(q);'
fault headers 'without exceptions' $daemon/uvc/JpegBlob.cpp '$ a void f() { throw std::bad_alloc(); }'
fault headers 'where they are built' $daemon/uvc/JpegBlob.cpp '$ a #ifdef __ANDROID__'

# ---- interfaces ---------------------------------------------------------------------------------
fault interfaces '@2.0::types is not as recorded' hardware/interfaces/camera/desktop/2.0/types.hal \
    's/RESERVED_7 = 7/RESERVED_7 = 8/'
fault interfaces '@1.0::ICameraDesktopCallback is not recorded' hardware/interfaces/current.txt \
    '/Callback/d'
fault interfaces 'use current.txt' hardware/interfaces/Android.bp 's/use_current: true/use_current: false/'
fault interfaces 'interfaces of korvane.hardware.camera.desktop@2.0' \
    hardware/interfaces/camera/desktop/2.0/Android.bp '/android.hardware.media/d'

# ---- the device's files -------------------------------------------------------------------------
fault files 'program of' $program.rc 's/@2\.0-service$/@2.1-service/'
fault files '@1.0::ICameraDesktop default' $program.rc '/interface .*@1\.0/d'
fault files 'the user' $program.rc 's/user cameraserver/user root/'
fault files 'the group' $program.rc 's/group camera/group camera system/'
fault files 'capabilities' $program.rc '$ a \    capabilities NET_ADMIN'
fault files 'user a second time' $program.rc '$ a \    user camera'
fault files 'not init' $program.rc 's/    class hal/    class "hal/'
fault files 'actions' $program.rc '$ a on boot'
fault files 'limit of descriptors' $program.rc '/rlimit/d'
fault files 'limit of descriptors' $program.rc 's/1024$/32768/'
fault files 'Opening and ending tag' $program.xml 's/<\/hal>//'
fault files 'as its grammar has it' $program.xml 's/<version>2\.0/<version>2/'
fault files 'as its grammar has it' $program.xml 's/type="device"/type="framework"/'
fault files 'as its grammar has it' $program.xml 's/interface>/interfaces>/'
fault files 'as its grammar has it' $daemon/framework_compatibility_matrix.xml 's/ optional="true"//'
fault files '@1.0::ICameraDesktop default' $program.xml '/<version>1\.0/d'
fault files 'ICameraDesktop main' $program.xml 's/>default</>main</'
fault files 'transport' $program.xml 's/hwbinder/passthrough/'
fault files 'hal failed to validate' $program.xml 's/format="hidl"/format="aidl"/'
fault files '@3.0::' $daemon/framework_compatibility_matrix.xml 's/2\.0/3.0/'
fault files 'default' $daemon/service.cpp 's/registerAsService\("default"\)/registerAsService("other")/'
fault files 'does not label' $policy/file_contexts 's/2\\\.0/2\\.1/'
fault files 'no such type' $policy/hwservice_contexts 's/_hwservice:/_service:/'
fault files 'ICameraDesk' $policy/hwservice_contexts 's/ICameraDesktop/ICameraDesk/'
fault files 'UVC-Config' docs/phone.md 's/^(adb logcat -s .*) UVC-Config /\1 /'
fault files 'does not log: failed to open uvc v4l2' $daemon/uvc/UvcGadgetHandler.cpp \
    's/failed to open uvc v4l2/cannot open uvc v4l2/'
fault files 'looked at only once' docs/phone.md 's/^on property:sys.usb.config=uvc/on boot/'
fault files 'no command: mkdirs' docs/phone.md 's/^    mkdir/    mkdirs/'
fault files "quote that doesn't end" docs/phone.md 's/(dwFrameInterval) 333333/\1 "333333/'
fault files 'own on boot' docs/phone.md 's/^    (# The board makes|chmod|mkdir|write|symlink)/on boot2\n&/'
fault files 'no service of' docs/phone-checklist.md 's/(init.svc.vendor.camera-desktop)-2-0/\1/'
fault files 'no service of' $program.rc 's/^service vendor.camera-desktop-2-0/&x/'
fault files 'another domain' docs/phone-checklist.md 's/hal_camera_desktop_default:s0/hal_camera_desktop:s0/'
fault files 'another user' docs/phone-checklist.md 's/`cameraserver`/`system`/'
fault files 'not logged: added devices' docs/phone-checklist.md 's/`added device:/`added devices:/'
fault files 'not logged: commit with fmt' docs/phone-checklist.md 's/UVC-V4l2Ctrl CameraDesktopHal/CameraDesktopHal/'
fault files 'another group' docs/phone.md 's/0660 system camera/0660 system video/'

fault sketch 'STREAMS' docs/phone.md 's/ClientType::STREAM,/ClientType::STREAMS,/'
fault sketch 'no sketch' docs/phone.md 's/^```cpp/```c++/'

# ---- the policy ---------------------------------------------------------------------------------
fault policy 'does not compile' $policy/hal_camera_desktop_default.te 's/^allow (.*configfs:dir.*);$/allow \1/'
fault policy 'unknown type' $policy/hal_camera_desktop_default.te 's/video_device:chr_file \{ getattr/vdeo_device:chr_file { getattr/'
fault policy 'permission' $policy/hal_camera_desktop_default.te 's/open read write \}/open read write fly }/'
fault policy 'sysfs_video4linux' $policy/file.te '/^type/d'
fault policy 'does not compile' docs/phone.md 's/:sysfs_video4linux:s0/:sysfs_video:s0/'
fault policy 'labels no folder' docs/phone.md '/^   genfscon/d'
fault policy 'does not compile' docs/phone.md 's/(client_domain\()platform_app/\1untrusted_app/'
fault policy 'has not: allow platform_app' docs/phone.md '/^   hal_client_domain/d'
fault policy 'fences: ' $policy/hal_camera_desktop_default.te '/hal_camera_server:fd/d'
fault policy 'no road needs' $policy/hal_camera_desktop_default.te 's/^(.*0x5600) # (VIDIOC_QUERYCAP)/    0x5602 0x5600 # \2/'
fault policy 'does not compile' $policy/hal_camera_desktop_default.te 's/^# allow (.*gpu)_device/# allow \1_devices/'
fault policy_rules 'nobody misses' $policy/hal_camera_desktop_default.te '$ a allow hal_camera_desktop_default sysfs:dir search;'
fault policy_rules 'nobody misses' $policy/hal_camera_desktop_default.te 's/video_device:chr_file \{ getattr/& lock/'
fault policy 'VIDIOC_QBUF' $policy/hal_camera_desktop_default.te '/VIDIOC_QBUF/d'
fault policy 'another number' $policy/hal_camera_desktop_default.te 's/0x560f/0x560e/'
fault policy 'VIDIOC_G_FMT' $daemon/uvc/V4l2CtrlBase.cpp '$ a int x = VIDIOC_G_FMT;'
fault policy 'too much' $policy/hal_camera_desktop_default.te '$ a allow x self:capability net_admin;'
fault policy 'no reason' $policy/hal_camera_desktop_default.te '/^# The UVC function/d'

# ---- as the phone compiles it -------------------------------------------------------------------
check_arguments=$daemon/uvc/JpegBlob.cpp
fault syntax 'does not compile' $check_arguments '$ a int f() { throw 1; }'
fault syntax 'does not compile' $check_arguments '$ a struct A { virtual ~A(); }; struct B : A {}; bool f(A* a) { return dynamic_cast<B*>(a); }'
fault syntax 'does not compile' $check_arguments '$ a static_assert(static_cast<char>(-1) < 0);'
fault syntax 'does not compile' $check_arguments '$ a #include <bits/stl_vector.h>'
"$checks/syntax_test.sh" $check_arguments || bad 'syntax fails on what is right'
check_arguments=$daemon/uvc/NoSuch.cpp
! "$checks/syntax_test.sh" $check_arguments 2>/dev/null || bad 'syntax passes without a source'

[ $failures = 0 ] || exit 1
