// Qt's calculator example driven by WebdriverIO through kwdriver.
'use strict';
const assert = require('node:assert/strict');
const { remote } = require('webdriverio');
const { appsPresent, appPath, startDriver } = require('./driver');

describe('the calculator through WebdriverIO', function () {
  this.timeout(300000);
  let driver;
  let browser;

  before(async function () {
    if (!appsPresent()) {
      console.log('SKIPPED: needs Qt\'s example applications and a Qt 4.8 SDK beside the checkout');
      this.skip();
    }
    driver = await startDriver('wdio_calculator');
    browser = await remote({
      hostname: '127.0.0.1',
      port: driver.port,
      path: '/',
      logLevel: 'warn',
      capabilities: {
        platformName: 'windows',
        'kw:app': appPath('calculator'),
        'wdio:enforceWebDriverClassic': true,
      },
    });
  });

  after(async function () {
    if (browser) await browser.deleteSession();
    if (driver) await driver.stop();
  });

  const display = () => browser.$('Calculator > QLineEdit');

  beforeEach(async function () {
    await browser.$('Button[text="Clear All"]').click();
    assert.equal(await display().getText(), '0');
  });

  it('adds 7 and 8 by css selectors', async function () {
    for (const text of ['7', '+', '8', '=']) await browser.$(`Button[text="${text}"]`).click();
    assert.equal(await display().getText(), '15');
  });

  it('multiplies by XPath and link text', async function () {
    await browser.$('//Button[@text="1"]').click();
    await browser.$('//Button[@text="2"]').click();
    await browser.$('=\u00d7').click();
    await browser.$('=7').click();
    await browser.$('==').click();
    assert.equal(await display().getText(), '84');
    assert.equal(await browser.$('//QLineEdit').getAttribute('text'), '84');
  });

  it('finds every button', async function () {
    const buttons = await browser.$$('Button');
    assert.equal(buttons.length, 27);
    assert.equal(await browser.$('Button[text="Backspace"]').getTagName(), 'Button');
  });

  it('runs a script in the application with an element argument', async function () {
    await browser.execute('arguments[0].setText("321");', await display());
    assert.equal(await display().getText(), '321');
    const read = await browser.execute('return arguments[0].text + "!";', await display());
    assert.equal(read, '321!');
  });

  it('answers isFocused, isClickable and getValue, which send browser functions', async function () {
    await browser.$('Button[text="7"]').click();
    assert.equal(await display().getValue(), '7');
    assert.equal(await display().isFocused(), true);
    assert.equal(await browser.$('Button[text="8"]').isFocused(), false);
    assert.equal(await browser.$('Button[text="8"]').isClickable(), true);
  });

  it('answers a missing element with no such element', async function () {
    await assert.rejects(browser.findElement('css selector', 'QPushButton#nothingHasThisName')
      .then((result) => { if (result && result.error) throw new Error(result.error); return result; }),
    /no such element/);
  });

  it('reports the window title', async function () {
    assert.equal(await browser.getTitle(), 'Calculator');
  });
});
