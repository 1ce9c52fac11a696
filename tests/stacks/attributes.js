// What the board's low-energy neighbours offer, and the stacks here too when they are found.
'use strict';

const BASE = '00001000800000805f9b34fb';

// UUIDs as all stacks agree on them: lower case, no dashes, four digits where that is enough.
function short(uuid) {
  const digits = uuid.toLowerCase().replaceAll('-', '');
  return digits.startsWith('0000') && digits.endsWith(BASE) ? digits.slice(4, 8) : digits;
}

// And as they are written out.
function dashed(uuid) {
  const digits = uuid.length === 4 ? `0000${uuid}${BASE}` : uuid;
  return digits.replace(/(.{8})(.{4})(.{4})(.{4})(.{12})/, '$1-$2-$3-$4-$5').toUpperCase();
}

module.exports = {
  short,
  dashed,
  NAME: '2a00',
  BATTERY: '180f',
  LEVEL: '2a19',
  FULL: 100,
  NOTES: '225a22011f8e4c4a9d3b6e6f74650001',
  NOTE: '225a22011f8e4c4a9d3b6e6f74650002',
};
