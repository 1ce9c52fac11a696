// noble: a stack for the central role, over a serial port.
'use strict';
const { once } = require('events');
const { withBindings } = require('@stoprocent/noble');
const { short } = require('./attributes');

const POWER_LIMIT_MS = 60000;

// It pairs by itself when it is refused something for want of that.
class Link {
  constructor(peripheral) {
    this.peripheral = peripheral;
    this.address = peripheral.address.toUpperCase();
  }

  async discover() {
    const { services, characteristics } = await this.peripheral.discoverAllServicesAndCharacteristicsAsync();
    this.characteristics = Object.fromEntries(characteristics.map((one) => [short(one.uuid), one]));
    return services.map((service) => short(service.uuid));
  }

  read(uuid) {
    return this.characteristics[uuid].readAsync();
  }

  write(uuid, value) {
    return this.characteristics[uuid].writeAsync(value, false);
  }

  async notification(uuid) {
    const told = once(this.characteristics[uuid], 'data');
    await this.characteristics[uuid].subscribeAsync();
    const [value] = await told;
    return value;
  }

  disconnect() {
    return this.peripheral.disconnectAsync();
  }
}

class Stack {
  constructor(noble) {
    this.noble = noble;
  }

  // Resolves when all `names` have been seen, to how each can be connected to.
  async find(names) {
    const found = new Map();
    const all = new Promise((resolve) => {
      this.noble.on('discover', (peripheral) => {
        const name = peripheral.advertisement.localName;
        if (names.includes(name)) found.set(name, peripheral);
        if (found.size === names.length) resolve();
      });
    });
    await this.noble.startScanningAsync([], true);
    await all;
    await this.noble.stopScanningAsync();
    return found;
  }

  async connect(peripheral) {
    await peripheral.connectAsync();
    return new Link(peripheral);
  }
}

module.exports = {
  async open(port) {
    const noble = withBindings('hci', { hciDriver: 'uart', bindParams: { uart: { port, baudRate: 1000000 } } });
    await noble.waitForPoweredOnAsync(POWER_LIMIT_MS);
    return new Stack(noble);
  },
};
