// bleno: a stack for the peripheral role, over a serial port. It cannot pair there: it leaves the keys to the kernel's stack,
// which has no part in it.
'use strict';
const { once } = require('events');
const { withBindings } = require('@stoprocent/bleno');
const { BATTERY, FULL, LEVEL, NOTE, NOTES } = require('./attributes');

const POWER_LIMIT_MS = 60000;

// bleno's classes, of the bindings in use.
function services({ Characteristic, PrimaryService }, noted) {
  let text = Buffer.alloc(0);
  const level = new Characteristic({
    uuid: LEVEL,
    properties: ['read', 'notify'],
    onReadRequest: (connection, offset, done) => done(Characteristic.RESULT_SUCCESS, Buffer.from([FULL])),
    onSubscribe: (connection, size, tell) => tell(Buffer.from([FULL - 1])),
  });
  const note = new Characteristic({
    uuid: NOTE,
    properties: ['read', 'write'],
    onReadRequest: (connection, offset, done) => done(Characteristic.RESULT_SUCCESS, text.subarray(offset)),
    onWriteRequest(connection, value, offset, withoutResponse, done) {
      text = value;
      done(Characteristic.RESULT_SUCCESS);
      noted(String(value));
    },
  });
  return [
    new PrimaryService({ uuid: BATTERY, characteristics: [level] }),
    new PrimaryService({ uuid: NOTES, characteristics: [note] }),
  ];
}

class Stack {
  constructor(bleno) {
    this.bleno = bleno;
  }

  // Advertises as `name` until a central connects. `noted` resolves to what it writes.
  async serve(name) {
    const accepted = once(this.bleno, 'accept');
    const gone = once(this.bleno, 'disconnect');
    const noted = new Promise((resolve) => this.bleno.setServices(services(this.bleno, resolve)));
    await this.bleno.startAdvertisingAsync(name, [BATTERY]);
    const [address] = await accepted;
    return { address: address.toUpperCase(), noted, gone, disconnect: () => this.bleno.disconnect() };
  }
}

module.exports = {
  async open(port) {
    const bleno = withBindings('hci', { hciDriver: 'uart', bindParams: { uart: { port, baudRate: 1000000 } } });
    await bleno.waitForPoweredOnAsync(POWER_LIMIT_MS);
    return new Stack(bleno);
  },
};
