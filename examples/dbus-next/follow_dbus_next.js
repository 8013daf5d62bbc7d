#!/usr/bin/node
// Records, and follows the time zone, with dbus-next: follow_dbus_next.js [ZONE]
'use strict';

const dbus = require('dbus-next');

const SERVICE = 'com.tavilon.common.Controller1';
const PATH = '/com/tavilon/common/Controller1';
const CONTROL = `${SERVICE}.Control`;
const awaited = new Set(['TimezoneChanged', 'TimeChanged']);
const bus = dbus.sessionBus();

async function follow(wanted) {
    const object = await bus.getProxyObject(SERVICE, PATH);
    const controller = object.getInterface(CONTROL);
    const properties = object.getInterface('org.freedesktop.DBus.Properties');
    const get = async name => (await properties.Get(CONTROL, name)).value;

    // By path and interface, without a sender: the proxy's own "on" drops what the name's owner has not sent.
    const heard = new Promise(resolve => bus.on('message', message => {
        if (message.path === PATH && message.interface === CONTROL && awaited.delete(message.member))
            console.log(message.member);
        if (awaited.size === 0)
            resolve();
    }));
    const broker = await bus.getProxyObject('org.freedesktop.DBus', '/org/freedesktop/DBus');
    await broker.getInterface('org.freedesktop.DBus').AddMatch(`type='signal',path='${PATH}',interface='${CONTROL}'`);

    const zone = await get('GetTimezone');
    console.log(`zone: ${zone}`);
    const [code, message] = await controller.VideoRecordStart(1920, 1080, 90);
    console.log(`start: ${message}`);
    if (code === 0)
        console.log(`stop: ${(await controller.VideoRecordStop())[1]}`);

    await controller.SetTimezone(wanted ?? zone);
    await heard;
    // Asked for again, as each property of these proxies is: keep none, no PropertiesChanged tells of it.
    console.log(`zone: ${await get('GetTimezone')}`);
}

follow(process.argv[2]).catch(error => {
    console.error(error.message);
    process.exitCode = 1;
}).finally(() => bus.disconnect());
