// A program that plays one host: opens the stack, says what it reaches, and ends with 0, or with 1 and why.
'use strict';

const LIMIT_S = 100;  // for all of it: who needs longer hangs

module.exports = async function party(play) {
  const [, , kind, where, ...rest] = process.argv;
  const say = (text) => console.log(`${kind}: ${text}`);
  const fail = (why) => {
    say(why.stack || why);
    process.exit(1);
  };
  let reached = 'nothing';
  setTimeout(() => fail(`not done after ${LIMIT_S} s; reached: ${reached}`), LIMIT_S * 1000);
  process.on('unhandledRejection', fail);
  const tell = (text) => {
    reached = text;
    say(text);
  };
  await play(tell, await require(`./${kind}`).open(where), ...rest);
  process.exit(0);
};
