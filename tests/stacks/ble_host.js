// ble-host: a host stack whose transport is an object of the caller's: here a Unix socket, cut into whole packets.
'use strict';
const { EventEmitter, once } = require('events');
const net = require('net');
const { promisify } = require('util');
const { AdvertisingDataBuilder, AttErrors, BleManager } = require('ble-host');
const { BATTERY, FULL, LEVEL, NOTE, NOTES, dashed, short } = require('./attributes');

// What the length field of each packet that a controller sends says: where it is, and its size.
const LENGTHS = { 2: [3, 2], 3: [3, 1], 4: [2, 1] };

class Transport extends EventEmitter {
  constructor(path) {
    super();
    this.socket = net.createConnection(path);
    this.rest = Buffer.alloc(0);
    this.socket.on('data', (bytes) => this.cut(bytes));
    for (const event of ['close', 'error']) this.socket.on(event, (what) => this.emit(event, what));
  }

  write(packet) {
    this.socket.write(packet);
  }

  cut(bytes) {
    this.rest = Buffer.concat([this.rest, bytes]);
    while (this.rest.length > 0) {
      const [at, size] = LENGTHS[this.rest[0]];
      if (this.rest.length < at + size) return;
      const end = at + size + this.rest.readUIntLE(at, size);
      if (this.rest.length < end) return;
      const packet = this.rest.subarray(0, end);
      this.rest = this.rest.subarray(end);
      this.emit('data', packet);
    }
  }
}

// Its callbacks have the status first: zero, or why not.
function ask(object, method, ...args) {
  return new Promise((resolve, reject) => {
    object[method](...args, (status, value) => {
      if (status) reject(Object.assign(new Error(`${method}: status ${status}`), { status }));
      else resolve(value);
    });
  });
}

// A connection in either role; of another's attributes it is the client in both.
class Link {
  constructor(connection) {
    this.connection = connection;
    this.address = connection.peerAddress;
    this.gone = once(connection, 'disconnect');
    this.paired = Promise.race([
      once(connection.smp, 'pairingComplete'),
      once(connection.smp, 'pairingFailed').then(([reason]) => Promise.reject(new Error(`pairing failed: ${reason}`))),
    ]);
    this.paired.catch(() => {});
  }

  async discover() {
    this.characteristics = {};
    const services = await new Promise((resolve) => this.connection.gatt.discoverAllPrimaryServices(resolve));
    for (const service of services) {
      const found = await new Promise((resolve) => service.discoverCharacteristics(resolve));
      for (const characteristic of found) this.characteristics[short(characteristic.uuid)] = characteristic;
    }
    return services.map((service) => short(service.uuid));
  }

  async pair() {
    if (this.connection.smp.sendPairingRequest) this.connection.smp.sendPairingRequest({});
    else this.connection.smp.sendSecurityRequest(true, false, true, false);
    await this.paired;
  }

  // Asks once more after a pairing if it is refused for want of that.
  async request(uuid, method, ...args) {
    try {
      return await ask(this.characteristics[uuid], method, ...args);
    } catch (refusal) {
      const { INSUFFICIENT_AUTHENTICATION, INSUFFICIENT_ENCRYPTION } = AttErrors;
      if (![INSUFFICIENT_AUTHENTICATION, INSUFFICIENT_ENCRYPTION].includes(refusal.status)) throw refusal;
      await this.pair();
      return ask(this.characteristics[uuid], method, ...args);
    }
  }

  read(uuid) {
    return this.request(uuid, 'read');
  }

  write(uuid, value) {
    return this.request(uuid, 'write', value);
  }

  async notification(uuid) {
    const told = once(this.characteristics[uuid], 'change');
    await ask(this.characteristics[uuid], 'writeCCCD', true, false);
    const [value] = await told;
    return value;
  }

  async disconnect() {
    this.connection.disconnect();
    await this.gone;
  }
}

class Stack {
  constructor(manager) {
    this.manager = manager;
  }

  // Resolves when all `names` have been seen, to how each can be connected to.
  find(names) {
    const found = new Map();
    const scanner = this.manager.startScan();
    return new Promise((resolve) => {
      scanner.on('report', (report) => {
        const name = report.parsedDataItems.localName?.replace(/\.{3}$/, '');  // so it marks a shortened one
        if (!names.includes(name)) return;
        found.set(name, report);
        if (found.size < names.length) return;
        scanner.stopScan();
        resolve(found);
      });
    });
  }

  async connect({ addressType, address }) {
    return new Link(await new Promise((resolve) => this.manager.connect(addressType, address, {}, resolve)));
  }

  // Advertises as `name` until a central connects. `noted` resolves to what it writes.
  async serve(name) {
    this.manager.gattDb.setDeviceName(name);
    const noted = new Promise((resolve) => this.manager.gattDb.addServices(services(resolve)));
    const data = new AdvertisingDataBuilder().addFlags(['leGeneralDiscoverableMode', 'brEdrNotSupported']);
    await ask(this.manager, 'setAdvertisingData', data.addLocalName(true, name).build());
    const link = new Link(await ask(this.manager, 'startAdvertising', {}));
    return Object.assign(link, { noted });
  }
}

function services(noted) {
  const level = {
    uuid: dashed(LEVEL),
    properties: ['read', 'notify'],
    value: Buffer.from([FULL]),
    onSubscriptionChange: (connection, wanted) => wanted && level.notify(connection, Buffer.from([FULL - 1])),
  };
  const note = {
    uuid: dashed(NOTE),
    properties: ['read', 'write'],
    readPerm: 'encrypted',
    writePerm: 'encrypted',
    value: Buffer.alloc(0),
    onWrite(connection, needsResponse, value, done) {
      note.value = value;
      done(0);
      noted(String(value));
    },
  };
  return [
    { uuid: dashed(BATTERY), characteristics: [level] },
    { uuid: dashed(NOTES), characteristics: [note] },
  ];
}

module.exports = {
  open: async (path) => new Stack(await ask(BleManager, 'create', new Transport(path), {})),
};
