// node peripheral.js STACK WHERE NAME [CENTRAL]: advertises as NAME, and serves a central, which notes something and leaves.
// The board's phone (CENTRAL is its address) does not: it asks for the name, and stays until standard input has ended. A
// stack that can pairs with it meanwhile, and reads what it offers.
'use strict';
const assert = require('assert/strict');
const { once } = require('events');
const { LEVEL, NOTE } = require('./attributes');
const party = require('./party');

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
    await link.pair();
    await link.write(NOTE, Buffer.from('kettle'));
    assert.equal(String(await link.read(NOTE)), 'kettle');
    say(`paired with it; its battery: ${level} %`);
  }
  await once(process.stdin.resume(), 'end');
  link.disconnect();
  await link.gone;
});
