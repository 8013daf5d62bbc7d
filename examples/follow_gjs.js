#!/usr/bin/gjs -m
// Records, and follows the time zone, with GDBus from JavaScript: follow_gjs.js [ZONE]
import Gio from 'gi://Gio';
import GLib from 'gi://GLib';

const SERVICE = 'com.tavilon.common.Controller1';
const PATH = '/com/tavilon/common/Controller1';
const CONTROL = `${SERVICE}.Control`;
const MILLISECONDS = 120000;
const awaited = new Set(['TimezoneChanged', 'TimeChanged']);
const loop = new GLib.MainLoop(null, false);

const bus = Gio.bus_get_sync(Gio.BusType.SESSION, null);
const proxy = Gio.DBusProxy.new_sync(bus, Gio.DBusProxyFlags.NONE, null, SERVICE, PATH, CONTROL, null);
// By path and interface, without a sender: the proxy's own 'g-signal' never tells of the two.
bus.signal_subscribe(null, CONTROL, null, PATH, null, Gio.DBusSignalFlags.NONE,
    (_bus, _sender, _path, _interface, member) => {
        if (awaited.delete(member))
            print(member);
        if (awaited.size === 0)
            loop.quit();
    });

function call(member, signature = '()', ...values) {
    const parameters = new GLib.Variant(signature, values);
    return proxy.call_sync(member, parameters, Gio.DBusCallFlags.NONE, MILLISECONDS, null).recursiveUnpack();
}

const zone = proxy.get_cached_property('GetTimezone').unpack();
print(`zone: ${zone}`);
const [code, message] = call('VideoRecordStart', '(uuu)', 1920, 1080, 90);
print(`start: ${message}`);
if (code === 0)
    print(`stop: ${call('VideoRecordStop')[1]}`);

call('SetTimezone', '(s)', ARGV[0] ?? zone);
loop.run();
// Asked for again, since no PropertiesChanged brings the proxy's cache up to date.
print(`cached: ${proxy.get_cached_property('GetTimezone').unpack()}`);
print(`zone: ${call('org.freedesktop.DBus.Properties.Get', '(ss)', CONTROL, 'GetTimezone')[0]}`);
