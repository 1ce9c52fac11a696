// node central.js STACK WHERE NAME [OTHER...]: finds NAME and OTHERs, connects to NAME and uses all that it offers.
'use strict';
const assert = require('assert/strict');
const { BATTERY, LEVEL, NAME, NOTE, NOTES } = require('./attributes');
const party = require('./party');

party(async (say, stack, name, ...others) => {
  const found = await stack.find([name, ...others]);
  say(`found ${[...found.keys()].join(', ')}`);
  const link = await stack.connect(found.get(name));
  const services = await link.discover();
  for (const service of [BATTERY, NOTES]) assert(services.includes(service), `${service} is not among ${services}`);
  assert.equal(String(await link.read(NAME)), name);
  const [level] = await link.read(LEVEL);
  const [told] = await link.notification(LEVEL);
  assert(told < level, `told of ${told} % after ${level} %`);
  say(`${link.address} tells its name, and of its battery: ${level} %, then ${told} %`);
  const text = `at ${process.hrtime.bigint() % 1000000n}`;
  await link.write(NOTE, Buffer.from(text));
  assert.equal(String(await link.read(NOTE)), text);
  say(`it keeps what was noted: ${text}`);
  await link.disconnect();
});
