-- The loop of dispatch.tva; rows are tables.
local price, quantity, limit = ...
local item = {price = price, quantity = quantity}
local temp = {sum = 0.0, counter = 0, rounds = 0}
repeat
  if item.quantity > 10 then
    temp.sum = temp.sum + item.price
    temp.counter = temp.counter + item.quantity
  end
  temp.rounds = temp.rounds + 1
until temp.rounds >= limit
return temp.sum, temp.counter, temp.rounds
