// node peripheral.js STACK WHERE NAME [CENTRAL]: advertises as NAME, and serves a central, which notes something and leaves.
// The board's phone (CENTRAL is its address) does not: it asks for the name, and stays until SIGTERM. A stack that can
// pairs with it meanwhile, and reads what it offers.
'use strict';
const assert = require('assert/strict');
const { once } = require('events');
const { LEVEL, NOTE } = require('./attributes');
const party = require('./party');

const dismissed = once(process, 'SIGTERM');

party(async (say, stack, name, central) => {
  say(`advertising as ${name}`);
  const link = await stack.serve(name);
  say(`${link.address} has connected`);
  if (central === undefined) {
    say(`it has noted: ${await link.noted}`);
    await link.gone;
    return;
  }
  assert.equal(link.address, central);
  if (link.discover) {
    await link.discover();
    const [level] = await link.read(LEVEL);
    await link.write(NOTE, Buffer.from('kettle'));
    assert.equal(String(await link.read(NOTE)), 'kettle');
    assert(link.connection.smp.isEncrypted);
    say(`its battery: ${level} %; paired, it keeps what was noted`);
  }
  await dismissed;
  link.disconnect();
  await link.gone;
});
